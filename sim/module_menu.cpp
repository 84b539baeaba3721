#include "sim/module_menu.h"

#include <algorithm>

namespace sim {
namespace {

constexpr std::array<const char*, 4> kNames = {"exposure", "white balance", "sharpness", "exit"};
constexpr size_t kExit = kNames.size() - 1;

}  // namespace

void ModuleMenu::Press(MenuKey key) {
  static_assert(kNames.size() == kLines);
  if (!is_open_) {
    is_open_ = key == MenuKey::kMenu;
    cursor_ = 0;
    return;
  }
  switch (key) {
    case MenuKey::kMenu:
      is_open_ = cursor_ != kExit;
      break;
    case MenuKey::kUp:
      cursor_ = (cursor_ + kLines - 1) % kLines;
      break;
    case MenuKey::kDown:
      cursor_ = (cursor_ + 1) % kLines;
      break;
    case MenuKey::kLeft:
      Change(-1);
      break;
    case MenuKey::kRight:
      Change(1);
      break;
  }
}

std::string ModuleMenu::Describe() const {
  if (!is_open_) return "menu closed";
  std::string text = std::string("menu at ") + kNames[cursor_];
  if (cursor_ != kExit) text.append(" ").append(std::to_string(values_[cursor_]));
  return text;
}

const char* ModuleMenu::NameOf(size_t line) {
  return kNames[line];
}

void ModuleMenu::Change(int by) {
  if (cursor_ != kExit) values_[cursor_] = std::clamp(values_[cursor_] + by, 0, kValueMax);
}

}  // namespace sim
