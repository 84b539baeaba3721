// The on-screen menu of a camera module, operated by keys.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace sim {

enum class MenuKey { kMenu, kUp, kDown, kLeft, kRight };

class ModuleMenu {
 public:
  // The menu key opens the menu; on the exit line it closes it. Up and down move the cursor and
  // wrap around; left and right lower and raise the value at the cursor. All keys but the menu key
  // do nothing while the menu is closed.
  void Press(MenuKey key);

  bool IsOpen() const { return is_open_; }

  // The line at the cursor, and the name and value of a line. The last line exits the menu and has
  // no value.
  size_t Cursor() const { return cursor_; }
  static constexpr size_t kLines = 4;
  static const char* NameOf(size_t line);
  int ValueOf(size_t line) const { return values_[line]; }
  static constexpr int kValueMax = 9;

  // "menu closed", "menu at exposure 5", "menu at exit".
  std::string Describe() const;

 private:
  static constexpr int kValueAtStart = 5;

  void Change(int by);

  bool is_open_ = false;
  size_t cursor_ = 0;
  std::array<int, kLines> values_ = {kValueAtStart, kValueAtStart, kValueAtStart, kValueAtStart};
};

}  // namespace sim
