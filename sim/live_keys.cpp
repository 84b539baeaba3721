#include "sim/live_keys.h"

#include <algorithm>
#include <array>

#include "relay/pelco_d.h"
#include "sim/far_end_models.h"
#include "sim/peers.h"

namespace sim {
namespace {

// Models with the same keys.
enum Group : unsigned {
  kDome = 1,       // QB-620
  kPlainHead = 2,  // QB-610
  kHead = 4,       // any other head
  kSd = 8,
  kHd = 16,
  kLens = 32,
};

enum class Kind {
  kMotion,  // lasts until it is stopped
  kTap,     // the daemon, or what is behind it, ends it by itself
  kToggle,  // sends its first parameter and the other one by turns
  kGoTo,    // one of nine keys: its number is the first parameter
  kSet,     // the number that comes next is set, not gone to
};

enum class Stop { kNone, kZoom, kFocus, kLine };

struct KeyRow {
  unsigned groups;
  int key;
  Kind kind;
  CameraControl control;
  Stop stop;
  const char* words;
  // The entry of the footer; a row without one belongs to the entry before it.
  KeyHelp help;
  int8_t other = 0;
};

// Speeds of -128 to 127 that a screen can follow.
constexpr int8_t kTurn = 50;
constexpr int8_t kLensSpeed = 40;
// Who drives a lens: the daemon, or its micom.
constexpr int8_t kAfByDaemon = 3;
constexpr int8_t kAfByMicom = 2;

constexpr KeyHelp kSame = {nullptr, nullptr};

constexpr KeyRow Motion(unsigned groups, int key, const CameraControl& control, Stop stop,
                        const char* words, const KeyHelp& help = kSame) {
  return {groups, key, Kind::kMotion, control, stop, words, help};
}

constexpr KeyRow Tap(unsigned groups, int key, uint16_t code, const char* words,
                     const KeyHelp& help = kSame, int8_t first = 0) {
  return {groups, key, Kind::kTap, Control(code, first), Stop::kNone, words, help};
}

constexpr KeyRow Toggle(unsigned groups, int key, uint16_t code, int8_t first, int8_t other,
                        const char* words, const KeyHelp& help) {
  return {groups, key, Kind::kToggle, Control(code, first), Stop::kNone, words, help, other};
}

constexpr CameraControl Turn(int8_t pan, int8_t tilt) {
  return Control(CAMERA_CODE_JOYSTICK, pan, tilt);
}
constexpr CameraControl Zoom(int8_t speed) {
  return Control(CAMERA_CODE_ZOOM, 0, 0, speed);
}
constexpr CameraControl Focus(int8_t speed) {
  return Control(CAMERA_CODE_FOCUS, speed);
}

constexpr unsigned kZooming = kDome | kHead | kSd | kHd;
constexpr unsigned kFocusing = kDome | kHead | kHd;
constexpr unsigned kModule = kSd | kHd;

constexpr KeyHelp kPanTilt = {"←↑↓→", "pan, tilt"};
constexpr KeyHelp kInMenu = {"←↑↓→", "in the menu"};

constexpr auto kRows = std::to_array<KeyRow>({
    Motion(kDome, kKeyLeft, Turn(-kTurn, 0), Stop::kZoom, "pan left", kPanTilt),
    Motion(kDome, kKeyRight, Turn(kTurn, 0), Stop::kZoom, "pan right"),
    Motion(kDome, kKeyUp, Turn(0, kTurn), Stop::kZoom, "tilt up"),
    Motion(kDome, kKeyDown, Turn(0, -kTurn), Stop::kZoom, "tilt down"),
    Motion(kPlainHead, kKeyLeft, Control(CAMERA_CODE_LEFT), Stop::kLine, "pan left", kPanTilt),
    Motion(kPlainHead, kKeyRight, Control(CAMERA_CODE_RIGHT), Stop::kLine, "pan right"),
    Motion(kPlainHead, kKeyUp, Control(CAMERA_CODE_UP), Stop::kLine, "tilt up"),
    Motion(kPlainHead, kKeyDown, Control(CAMERA_CODE_DOWN), Stop::kLine, "tilt down"),
    Tap(kHead, kKeyLeft, CAMERA_CODE_LEFT, "pan left", kPanTilt),
    Tap(kHead, kKeyRight, CAMERA_CODE_RIGHT, "pan right"),
    Tap(kHead, kKeyUp, CAMERA_CODE_UP, "tilt up"),
    Tap(kHead, kKeyDown, CAMERA_CODE_DOWN, "tilt down"),
    Tap(kModule, kKeyLeft, CAMERA_CODE_LEFT, "left", kInMenu),
    Tap(kModule, kKeyRight, CAMERA_CODE_RIGHT, "right"),
    Tap(kModule, kKeyUp, CAMERA_CODE_UP, "up"),
    Tap(kModule, kKeyDown, CAMERA_CODE_DOWN, "down"),
    Motion(kLens, kKeyUp, Zoom(kLensSpeed), Stop::kZoom, "zoom in", {"↑↓ +/-", "zoom"}),
    Motion(kLens, kKeyDown, Zoom(-kLensSpeed), Stop::kZoom, "zoom out"),
    Motion(kLens, '+', Zoom(kLensSpeed), Stop::kZoom, "zoom in"),
    Motion(kLens, '-', Zoom(-kLensSpeed), Stop::kZoom, "zoom out"),
    Motion(kLens, kKeyLeft, Focus(kLensSpeed), Stop::kFocus, "focus near", {"←→ n/f", "focus"}),
    Motion(kLens, kKeyRight, Focus(-kLensSpeed), Stop::kFocus, "focus far"),
    Motion(kLens, 'n', Focus(kLensSpeed), Stop::kFocus, "focus near"),
    Motion(kLens, 'f', Focus(-kLensSpeed), Stop::kFocus, "focus far"),
    Motion(kZooming, '+', Zoom(1), Stop::kZoom, "zoom in", {"+/-", "zoom"}),
    Motion(kZooming, '-', Zoom(-1), Stop::kZoom, "zoom out"),
    Motion(kFocusing, 'n', Focus(1), Stop::kFocus, "focus near", {"n/f", "focus near, far"}),
    Motion(kFocusing, 'f', Focus(-1), Stop::kFocus, "focus far"),
    Tap(kHd, 'F', CAMERA_CODE_FOCUS_SEARCH, "focus search", {"F", "focus search"}),
    Tap(kLens, 's', CAMERA_CODE_FOCUS_SEARCH, "focus search", {"s", "focus search"}),
    Tap(kLens, 'F', CAMERA_CODE_ASSIST, "reset and focus anew", {"F", "reset, focus anew"}),
    Toggle(kLens, 'A', CAMERA_CODE_AF_MODE, kAfByMicom, kAfByDaemon, "who drives the lens",
           {"A", "daemon/micom drives"}),
    Toggle(kDome, 'A', CAMERA_CODE_WHITE_BALANCE, 1, 0, "auto white balance",
           {"A", "auto white balance"}),
    Toggle(kDome, 'I', CAMERA_CODE_AUTO_IRIS, 1, 0, "auto iris", {"I", "auto iris"}),
    Tap(kLens, 'I', CAMERA_CODE_IRIS_STEP, "iris open", {"I/i", "iris open, close"}, 1),
    Tap(kLens, 'i', CAMERA_CODE_IRIS_STEP, "iris close", kSame, -1),
    Tap(kDome | kPlainHead | kHead | kModule, 'm', CAMERA_CODE_MENU, "menu", {"m", "menu"}),
    {kDome,
     '1',
     Kind::kGoTo,
     Control(CAMERA_CODE_GO_TO_PRESET),
     Stop::kNone,
     "preset ",
     {"1-9", "preset"}},
    {kDome,
     'p',
     Kind::kSet,
     Control(CAMERA_CODE_SET_PRESET),
     Stop::kNone,
     "set preset ",
     {"p 1-9", "set preset"}},
});

constexpr std::array<KeyHelp, 4> kAlways = {{
    {"space", "stop"},
    {":", "command"},
    {"?", "help"},
    {"q", "quit"},
}};

constexpr int kDigits = 9;

unsigned GroupOf(const std::string& model) {
  switch (KindOfModel(model)) {
    case FarEndKind::kSdModule:
      return kSd;
    case FarEndKind::kHdModule:
      return kHd;
    case FarEndKind::kLens:
      return kLens;
    case FarEndKind::kPtzHead:
      break;
  }
  if (model == "QB-620") return kDome;
  return model == "QB-610" ? kPlainHead : kHead;
}

KeyAction Send(const CameraControl& control, const std::string& words) {
  return {.words = words, .control = control, .line = {}};
}

// A head without a control code for it is stopped by a frame on the line.
KeyAction StopAction(Stop stop) {
  if (stop == Stop::kFocus) return Send(Control(CAMERA_CODE_FOCUS), "stop");
  if (stop == Stop::kZoom) return Send(Control(CAMERA_CODE_ZOOM), "stop");
  const PelcoFrame frame = PelcoBuild({.command1 = 0, .command2 = 0, .data1 = 0, .data2 = 0});
  return {.words = "stop", .control = std::nullopt, .line = Bytes(frame.begin(), frame.end())};
}

// Zoom and focus of a lens stop by codes of their own.
std::vector<KeyAction> StopOfGroup(unsigned group) {
  if (group == kPlainHead) return {StopAction(Stop::kLine)};
  std::vector<KeyAction> actions = {StopAction(Stop::kZoom)};
  if (group == kLens) actions.push_back(StopAction(Stop::kFocus));
  return actions;
}

bool IsKeyOf(const KeyRow& row, int key) {
  if (row.kind == Kind::kGoTo) return key >= row.key && key < row.key + kDigits;
  return row.key == key;
}

}  // namespace

std::vector<KeyHelp> KeysOfModel(const std::string& model) {
  std::vector<KeyHelp> keys;
  for (const KeyRow& row : kRows) {
    if ((row.groups & GroupOf(model)) != 0 && row.help.keys != nullptr) keys.push_back(row.help);
  }
  keys.insert(keys.end(), kAlways.begin(), kAlways.end());
  return keys;
}

std::vector<KeyAction> StopOfModel(const std::string& model) {
  return StopOfGroup(GroupOf(model));
}

KeyDriver::KeyDriver(const std::string& model) : group_(GroupOf(model)), toggled_(kRows.size()) {}

std::vector<KeyAction> KeyDriver::Press(int key, Clock::time_point now) {
  not_answered_ = 0;
  if (key == ' ') return StopAll();
  const auto* row = std::ranges::find_if(kRows, [this, key](const KeyRow& each) {
    return (each.groups & group_) != 0 && IsKeyOf(each, key);
  });
  if (row == kRows.end() || row->kind != Kind::kGoTo) next_digit_sets_ = false;
  if (row == kRows.end()) {
    not_answered_ = key;
    return {};
  }
  const auto index = static_cast<size_t>(row - kRows.begin());
  switch (row->kind) {
    case Kind::kMotion:
      return StartMotion(index, now);
    case Kind::kTap:
      return Tap(index, now);
    case Kind::kToggle:
      return Toggle(index);
    case Kind::kGoTo:
      return TakeDigit(index, key);
    case Kind::kSet:
      next_digit_sets_ = true;
      break;
  }
  return {};
}

std::vector<KeyAction> KeyDriver::Tick(Clock::time_point now) {
  if (!motion_.has_value() || now - motion_->last_press < kKeyHeld) return {};
  const Stop stop = kRows[motion_->row].stop;
  motion_.reset();
  return {StopAction(stop)};
}

std::string KeyDriver::State() const {
  if (next_digit_sets_) return "set preset: which one, 1 to 9?";
  if (not_answered_ > ' ' && not_answered_ <= '~') {
    return std::string(1, static_cast<char>(not_answered_)) +
           " is no key of this model; ? lists its keys";
  }
  return motion_.has_value() ? kRows[motion_->row].words : "";
}

// Another motion takes the place of the present one, which is stopped where the new one's frames
// would not.
std::vector<KeyAction> KeyDriver::StartMotion(size_t row, Clock::time_point now) {
  const bool is_repeat = motion_.has_value() && motion_->row == row;
  std::vector<KeyAction> actions;
  if (!is_repeat) {
    if (motion_.has_value() && kRows[motion_->row].stop != kRows[row].stop) {
      actions.push_back(StopAction(kRows[motion_->row].stop));
    }
    actions.push_back(Send(kRows[row].control, kRows[row].words));
  }
  motion_ = {.row = row, .last_press = now};
  return actions;
}

std::vector<KeyAction> KeyDriver::Tap(size_t row, Clock::time_point now) {
  if (tap_.has_value() && tap_->row == row && now - tap_->last_press < kKeyTap) return {};
  tap_ = {.row = row, .last_press = now};
  return {Send(kRows[row].control, kRows[row].words)};
}

std::vector<KeyAction> KeyDriver::Toggle(size_t row) {
  CameraControl control = kRows[row].control;
  if (toggled_[row]) control.first = kRows[row].other;
  toggled_[row] = !toggled_[row];
  return {Send(control, std::string(kRows[row].words) + ": " + std::to_string(control.first))};
}

std::vector<KeyAction> KeyDriver::TakeDigit(size_t row, int key) {
  const auto* chosen = &kRows[row];
  if (next_digit_sets_) chosen = std::ranges::find(kRows, Kind::kSet, &KeyRow::kind);
  next_digit_sets_ = false;
  CameraControl control = chosen->control;
  control.first = static_cast<int8_t>(key - kRows[row].key + 1);
  return {Send(control, chosen->words + std::to_string(control.first))};
}

std::vector<KeyAction> KeyDriver::StopAll() {
  motion_.reset();
  next_digit_sets_ = false;
  return StopOfGroup(group_);
}

}  // namespace sim
