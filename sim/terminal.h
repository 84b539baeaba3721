// The terminal that a live screen is shown on. One at a time.
#pragma once

#include <optional>

#include "sim/canvas.h"

namespace sim {

class Terminal {
 public:
  // Takes the terminal on standard input and output. Throws std::runtime_error when it cannot
  // be drawn on.
  Terminal();
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
  bool utf8_ = false;
};

}  // namespace sim
