// The on-screen menu of a camera module: opened, walked through and changed by keys.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace sim {

enum class MenuKey { kMenu, kUp, kDown, kLeft, kRight };

class ModuleMenu {
 public:
  // The menu key opens the menu and, on the exit line, closes it. Up and down move the cursor,
  // round at the ends; left and right lower and raise the value of the line under it. Other keys
  // than the menu key do nothing while the menu is closed.
  void Press(MenuKey key);

  bool IsOpen() const { return is_open_; }

  // The line under the cursor, and what the lines are called and hold. The last one, which leaves
  // the menu, holds nothing.
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
