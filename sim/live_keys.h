// The keys of the live screen: which of them a model answers, and what they send to the daemon.
//
// A terminal says when a key is pressed and repeated, not when it is let go. A motion therefore
// lasts as long as repeats come, and is stopped when none has come for a while.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ipc/camera_control.h"
#include "sim/pty_line.h"
#include "sim/wait.h"

namespace sim {

// Keys that are no character.
enum SpecialKey : int {
  kKeyUp = 0x100,
  kKeyDown,
  kKeyLeft,
  kKeyRight,
  kKeyPageUp,
  kKeyPageDown,
  kKeyBackspace,
  kKeyEnter,
  kKeyEscape,
  kKeyResize,
};

// No repeat within this time: the key was let go.
constexpr milliseconds kKeyHeld{300};
// A daemon that stops a motion by itself takes this long for one: a held key says no more often.
constexpr milliseconds kKeyTap{250};

// What is to be sent to the daemon.
struct KeyAction {
  std::string words;                     // for the user
  std::optional<CameraControl> control;  // on the command channel
  Bytes line;                            // else: bytes for the line, to the daemon's UDP port
};

// An entry of the footer, and its line in the help.
struct KeyHelp {
  const char* keys;
  const char* does;
};

// The keys that a model answers, in the order of the footer.
std::vector<KeyHelp> KeysOfModel(const std::string& model);

// What stops all motion of a model.
std::vector<KeyAction> StopOfModel(const std::string& model);

class KeyDriver {
 public:
  explicit KeyDriver(const std::string& model);

  // What a key that came `now` asks for: nothing for a key that the model does not answer, and
  // for the repeat of a motion.
  std::vector<KeyAction> Press(int key, Clock::time_point now);

  // Stops a motion whose key was let go.
  std::vector<KeyAction> Tick(Clock::time_point now);

  // What is held or awaited, or that the last key is none, in words; "" when there is nothing.
  std::string State() const;

 private:
  struct Motion {
    size_t row;
    Clock::time_point last_press;
  };

  std::vector<KeyAction> StartMotion(size_t row, Clock::time_point now);
  std::vector<KeyAction> Tap(size_t row, Clock::time_point now);
  std::vector<KeyAction> Toggle(size_t row);
  std::vector<KeyAction> TakeDigit(size_t row, int key);
  std::vector<KeyAction> StopAll();

  unsigned group_;  // of models with the same keys
  std::optional<Motion> motion_;
  std::optional<Motion> tap_;
  std::vector<bool> toggled_;  // by row
  bool next_digit_sets_ = false;
  int not_answered_ = 0;  // the last key, if the model does not answer it
};

}  // namespace sim
