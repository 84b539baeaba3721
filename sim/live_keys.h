// The keys of the live screen: which of them a model answers, and the typed commands that they
// stand for (vdev_commands.h).
//
// A terminal reports that a key is pressed and repeated, not that it is released. A motion
// therefore lasts as long as repeats arrive, and is stopped when none has come for a while.
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

  // The keys that the model answers, in the order of the footer.
  std::vector<HelpLine> Help() const;

  // The commands for a key that was pressed `now`: none for a key that the model does not answer,
  // and for the repeat of a motion.
  std::vector<std::string> Press(int key, Clock::time_point now);

  // Stops a motion whose key was released.
  std::vector<std::string> Tick(Clock::time_point now);

  // The motion that is held, what is expected next, or that the last key means nothing; else "".
  std::string State() const;

 private:
  std::vector<std::string> StartMotion(const KeyRow& row, Clock::time_point now);

  std::vector<const KeyRow*> rows_;  // that the model answers, one a key
  bool taps_need_stop_;              // the head does not end them by itself
  const KeyRow* motion_ = nullptr;   // the one that is held
  const KeyRow* tap_ = nullptr;      // the last one
  Clock::time_point motion_at_;      // the last press of each
  Clock::time_point tap_at_;
  std::set<int> toggled_;
  bool next_digit_sets_ = false;
  int unknown_key_ = 0;  // the last key, if the model does not answer it
};

}  // namespace sim
