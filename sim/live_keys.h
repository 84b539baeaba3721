// The keys of the live screen: the set that a model supports, and the commands that they run
// (vdev_commands.h).
//
// A terminal reports key presses and repeats, but no releases. A motion therefore lasts while
// repeats arrive and stops after a pause.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "sim/vdev_commands.h"
#include "sim/wait.h"

namespace sim {

struct KeyRow;

class KeyDriver {
 public:
  explicit KeyDriver(const std::string& model);

  // The keys that the model supports, in the order of the footer.
  std::vector<HelpLine> Help() const;

  // Returns the commands for a key pressed at `now`: none for a key that the model does not support
  // and for the repeat of a motion.
  std::vector<std::string> Press(int key, Clock::time_point now);

  // Returns the commands that stop a motion whose key was released.
  std::vector<std::string> Tick(Clock::time_point now);

  // The motion in progress, the expected next key, or a note that the last key has no meaning; else
  // "".
  std::string State() const;

 private:
  std::vector<std::string> StartMotion(const KeyRow& row, Clock::time_point now);

  std::vector<const KeyRow*> rows_;  // of the model, one per key
  bool taps_need_stop_;              // the head does not stop by itself
  const KeyRow* motion_ = nullptr;   // in progress
  const KeyRow* tap_ = nullptr;      // the last
  Clock::time_point motion_at_;      // last key press of each
  Clock::time_point tap_at_;
  std::set<int> toggled_;
  bool next_digit_sets_ = false;
  int unknown_key_ = 0;  // the last key, if the model does not support it
};

}  // namespace sim
