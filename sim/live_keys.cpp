#include "sim/live_keys.h"

// Its macros would take names like "move" and "timeout" from everyone.
#define NCURSES_NOMACROS 1
#include <curses.h>

#include <algorithm>
#include <array>
#include <utility>

namespace sim {

namespace {

// No repeat within this time: the key was released.
constexpr milliseconds kKeyHeld{300};
// The daemon takes this long for a motion that it stops by itself: a held key sends no more often.
constexpr milliseconds kKeyTap{250};

enum class Kind {
  kMotion,  // lasts until its second command
  kTap,     // the daemon, or what is behind it, ends it by itself
  kToggle,  // alternates between its two commands
  kGoTo,    // one of nine keys: its number follows the command
  kSet,     // the next number is set, not gone to
};

}  // namespace

struct KeyRow {
  unsigned modes;
  int key;
  Kind kind;
  const char* command;
  const char* second;
  // The entry of the footer; a row without one belongs to the entry before it.
  const char* keys = nullptr;
  const char* does = nullptr;
};

namespace {

using enum tools::DeviceMode;
using enum Kind;

constexpr unsigned kTapped = MODE_RELAY | MODE_SD | MODE_HD;
constexpr unsigned kModule = MODE_SD | MODE_HD;
constexpr unsigned kZooming = MODE_QB620 | MODE_RELAY | MODE_SD | MODE_HD;
constexpr unsigned kFocusing = MODE_QB620 | MODE_RELAY | MODE_HD;

// Speeds are such that a screen can follow.
constexpr auto kRows = std::to_array<KeyRow>({
    {MODE_QB620, KEY_LEFT, kMotion, "pan-left --speed 50", "stop", "←↑↓→", "pan, tilt"},
    {MODE_QB620, KEY_RIGHT, kMotion, "pan-right --speed 50", "stop"},
    {MODE_QB620, KEY_UP, kMotion, "tilt-up --speed 50", "stop"},
    {MODE_QB620, KEY_DOWN, kMotion, "tilt-down --speed 50", "stop"},
    {MODE_QB610, KEY_LEFT, kMotion, "left", "stop", "←↑↓→", "pan, tilt"},
    {MODE_QB610, KEY_RIGHT, kMotion, "right", "stop"},
    {MODE_QB610, KEY_UP, kMotion, "up", "stop"},
    {MODE_QB610, KEY_DOWN, kMotion, "down", "stop"},
    {MODE_RELAY, KEY_LEFT, kTap, "left", nullptr, "←↑↓→", "pan, tilt"},
    {kModule, KEY_LEFT, kTap, "left", nullptr, "←↑↓→", "in the menu"},
    {kTapped, KEY_RIGHT, kTap, "right", nullptr},
    {kTapped, KEY_UP, kTap, "up", nullptr},
    {kTapped, KEY_DOWN, kTap, "down", nullptr},
    {MODE_LENS, KEY_UP, kMotion, "zoom-tele --speed 40", "stop zoom", "↑↓ +/-", "zoom"},
    {MODE_LENS, KEY_DOWN, kMotion, "zoom-wide --speed 40", "stop zoom"},
    {MODE_LENS, '+', kMotion, "zoom-tele --speed 40", "stop zoom"},
    {MODE_LENS, '-', kMotion, "zoom-wide --speed 40", "stop zoom"},
    {MODE_LENS, KEY_LEFT, kMotion, "focus-near --speed 40", "stop focus", "←→ n/f", "focus"},
    {MODE_LENS, KEY_RIGHT, kMotion, "focus-far --speed 40", "stop focus"},
    {MODE_LENS, 'n', kMotion, "focus-near --speed 40", "stop focus"},
    {MODE_LENS, 'f', kMotion, "focus-far --speed 40", "stop focus"},
    {kZooming, '+', kMotion, "in", "stop", "+/-", "zoom"},
    {kZooming, '-', kMotion, "out", "stop"},
    {kFocusing, 'n', kMotion, "near", "stop", "n/f", "focus near, far"},
    {kFocusing, 'f', kMotion, "far", "stop"},
    {MODE_HD, 'F', kTap, "search", nullptr, "F", "focus search"},
    {MODE_LENS, 's', kTap, "search", nullptr, "s", "focus search"},
    {MODE_LENS, 'F', kTap, "assist", nullptr, "F", "reset, focus anew"},
    {MODE_LENS, 'A', kToggle, "af-mode micom", "af-mode daemon", "A", "daemon/micom drives"},
    {MODE_QB620, 'A', kToggle, "white-balance 1", "white-balance 0", "A", "auto white balance"},
    {MODE_QB620, 'I', kToggle, "auto-iris 1", "auto-iris 0", "I", "auto iris"},
    {MODE_LENS, 'I', kTap, "iris-step open", nullptr, "I/i", "iris open, close"},
    {MODE_LENS, 'i', kTap, "iris-step close", nullptr},
    {tools::MODES_RELAYED | kModule, 'm', kTap, "menu", nullptr, "m", "menu"},
    {MODE_QB620, '1', kGoTo, "goto ", nullptr, "1-9", "preset"},
    {MODE_QB620, 'p', kSet, "preset ", nullptr, "p 1-9", "set preset"},
});

}  // namespace

std::vector<HelpLine> KeyDriver::Help() const {
  std::vector<HelpLine> lines;
  for (const KeyRow& row : kRows) {
    if ((row.modes & mode_) != 0 && row.keys != nullptr) lines.push_back({row.keys, row.does});
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
  const auto* row = std::ranges::find_if(kRows, [&](const KeyRow& each) {
    return (each.modes & mode_) != 0 && each.key == (is_digit ? '1' : key);
  });
  if (row == kRows.end()) {
    unknown_key_ = key;
    return {};
  }
  switch (row->kind) {
    case kMotion:
      return StartMotion(*row, now);
    case kTap:
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
  if (next_digit_sets_) return "set which preset? 1 to 9";
  if (unknown_key_ > ' ' && unknown_key_ <= '~') {
    return std::string(1, static_cast<char>(unknown_key_)) +
           " is no key of this model; ? lists its keys";
  }
  return motion_ != nullptr ? motion_->command : "";
}

// Another motion replaces the present one, which is stopped first.
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
