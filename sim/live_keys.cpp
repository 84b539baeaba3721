#include "sim/live_keys.h"

// The ncurses macros would redefine common names such as "move" and "timeout".
#define NCURSES_NOMACROS 1
#include <curses.h>

#include <algorithm>
#include <array>
#include <utility>

#include "sim/vdev_commands.h"
#include "tools/device_mode.h"
#include "tools/ptz_verbs.h"

namespace sim {

namespace {

// A key without a repeat for this long was released.
constexpr milliseconds kKeyHeld{300};
// Minimum interval between taps: the daemon needs this long for a motion that it stops by itself.
constexpr milliseconds kKeyTap{250};

enum class Kind {
  kMotion,  // lasts until the second command
  kTap,     // stopped by the daemon or the far end; a motion if it has a second command and the
            // head does not stop by itself
  kToggle,  // alternates between two commands
  kGoTo,    // one of nine keys, whose digit follows the command
  kSet,     // the next digit sets the preset
};

}  // namespace

struct KeyRow {
  unsigned modes;
  int key;
  Kind kind;
  const char* command;
  const char* second;
  // Footer entry; null: covered by the entry before it.
  const char* keys = nullptr;
  const char* does = nullptr;
};

namespace {

using enum tools::DeviceMode;
using enum Kind;

constexpr unsigned kAny = tools::MODES_ALL;
constexpr unsigned kModule = MODE_SD | MODE_HD;

// The first row of a key with a verb of the model applies. Speeds are low enough to watch.
constexpr auto kRows = std::to_array<KeyRow>({
    {kAny, KEY_LEFT, kMotion, "pan-left --speed 50", "stop", "←↑↓→", "pan, tilt"},
    {kAny, KEY_RIGHT, kMotion, "pan-right --speed 50", "stop"},
    {kAny, KEY_UP, kMotion, "tilt-up --speed 50", "stop"},
    {kAny, KEY_DOWN, kMotion, "tilt-down --speed 50", "stop"},
    {MODE_RELAY, KEY_LEFT, kTap, "left", "stop", "←↑↓→", "pan, tilt"},
    {kModule, KEY_LEFT, kTap, "left", nullptr, "←↑↓→", "in the menu"},
    {kAny, KEY_RIGHT, kTap, "right", "stop"},
    {kAny, KEY_UP, kTap, "up", "stop"},
    {kAny, KEY_DOWN, kTap, "down", "stop"},
    {MODE_LENS, KEY_UP, kMotion, "zoom-tele --speed 40", "stop zoom", "↑↓ +/-", "zoom"},
    {MODE_LENS, KEY_DOWN, kMotion, "zoom-wide --speed 40", "stop zoom"},
    {MODE_LENS, '+', kMotion, "zoom-tele --speed 40", "stop zoom"},
    {MODE_LENS, '-', kMotion, "zoom-wide --speed 40", "stop zoom"},
    {MODE_LENS, KEY_LEFT, kMotion, "focus-near --speed 40", "stop focus", "←→ n/f", "focus"},
    {MODE_LENS, KEY_RIGHT, kMotion, "focus-far --speed 40", "stop focus"},
    {MODE_LENS, 'n', kMotion, "focus-near --speed 40", "stop focus"},
    {MODE_LENS, 'f', kMotion, "focus-far --speed 40", "stop focus"},
    {kAny, '+', kMotion, "in", "stop", "+/-", "zoom"},
    {kAny, '-', kMotion, "out", "stop"},
    {kAny, 'n', kMotion, "near", "stop", "n/f", "focus near, far"},
    {kAny, 'f', kMotion, "far", "stop"},
    {MODE_LENS, 's', kTap, "search", nullptr, "s", "focus search"},
    {kAny, 'F', kTap, "assist", nullptr, "F", "reset, refocus"},
    {kAny, 'F', kTap, "search", nullptr, "F", "focus search"},
    {kAny, 'A', kToggle, "af-mode micom", "af-mode daemon", "A", "daemon/micom drives"},
    {kAny, 'A', kToggle, "white-balance 1", "white-balance 0", "A", "auto white balance"},
    {kAny, 'I', kToggle, "auto-iris 1", "auto-iris 0", "I", "auto iris"},
    {kAny, 'I', kTap, "iris-step open", nullptr, "I/i", "iris open, close"},
    {kAny, 'i', kTap, "iris-step close", nullptr},
    {kAny, 'm', kTap, "menu", nullptr, "m", "menu"},
    {kAny, '1', kGoTo, "goto ", nullptr, "1-9", "preset"},
    {kAny, 'p', kSet, "preset ", nullptr, "p 1-9", "set preset"},
});

}  // namespace

KeyDriver::KeyDriver(const std::string& model) : taps_need_stop_(tools::IsStoppedByFrame(model)) {
  const tools::DeviceMode mode = tools::ModeOfModel(model);
  for (const KeyRow& row : kRows) {
    const bool is_taken = std::ranges::find(rows_, row.key, &KeyRow::key) != rows_.end();
    if (is_taken || (row.modes & mode) == 0) continue;
    if (tools::Answers(model, *VerbOf(row.command))) rows_.push_back(&row);
  }
}

std::vector<HelpLine> KeyDriver::Help() const {
  std::vector<HelpLine> lines;
  for (const KeyRow* row : rows_) {
    if (row->keys != nullptr) lines.push_back({row->keys, row->does});
  }
  lines.insert(lines.end(), {{"space", "stop"}, {":", "command"}, {"?", "help"}, {"q", "quit"}});
  return lines;
}

std::vector<std::string> KeyDriver::Press(int key, Clock::time_point now) {
  const bool sets = std::exchange(next_digit_sets_, false);
  unknown_key_ = 0;
  if (key == ' ') {
    motion_ = nullptr;
    return {"stop"};
  }
  const bool is_digit = key >= '1' && key <= '9';
  const auto found = std::ranges::find(rows_, is_digit ? '1' : key, &KeyRow::key);
  if (found == rows_.end()) {
    unknown_key_ = key;
    return {};
  }
  const KeyRow* row = *found;
  switch (row->kind) {
    case kMotion:
      return StartMotion(*row, now);
    case kTap:
      if (taps_need_stop_ && row->second != nullptr) return StartMotion(*row, now);
      if (tap_ == row && now - tap_at_ < kKeyTap) return {};
      tap_ = row;
      tap_at_ = now;
      return {row->command};
    case kToggle:
      if (toggled_.erase(key) > 0) return {row->second};
      toggled_.insert(key);
      return {row->command};
    case kGoTo:
      return {(sets ? "preset " : row->command) + std::string(1, static_cast<char>(key))};
    case kSet:
      next_digit_sets_ = true;
      break;
  }
  return {};
}

std::vector<std::string> KeyDriver::Tick(Clock::time_point now) {
  if (motion_ == nullptr || now - motion_at_ < kKeyHeld) return {};
  return {std::exchange(motion_, nullptr)->second};
}

std::string KeyDriver::State() const {
  if (next_digit_sets_) return "set preset: press 1 to 9";
  if (unknown_key_ > ' ' && unknown_key_ <= '~') {
    return std::string(1, static_cast<char>(unknown_key_)) +
           " is not a key of this model; press ? for help";
  }
  return motion_ != nullptr ? motion_->command : "";
}

// Stops the current motion before it starts another one.
std::vector<std::string> KeyDriver::StartMotion(const KeyRow& row, Clock::time_point now) {
  motion_at_ = now;
  if (motion_ == &row) return {};
  std::vector<std::string> commands;
  if (motion_ != nullptr) commands.emplace_back(motion_->second);
  commands.emplace_back(row.command);
  motion_ = &row;
  return commands;
}

}  // namespace sim
