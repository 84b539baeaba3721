// The terminal that a live screen is shown on. One at a time.
#pragma once

#include <memory>
#include <optional>

#include "sim/canvas.h"

namespace sim {

class Terminal {
 public:
  // Takes the terminal on standard input and output; null when it cannot be drawn on.
  static std::unique_ptr<Terminal> Open();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  // Gives it back as it was.
  ~Terminal();

  int Rows() const;
  int Cols() const;

  void Show(const Canvas& canvas);

  // The next key that was pressed: a character or a SpecialKey. Does not wait.
  std::optional<int> ReadKey();

 private:
  explicit Terminal(bool utf8);

  bool utf8_;
};

// Leaves the screen of a process that has ended without doing so.
void LeaveScreen();

}  // namespace sim
