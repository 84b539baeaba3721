// What is measured of the lens mode, each in private worlds of its own: focus searches, moves of
// the drive, processor time at rest.
//
// The calling process must have one thread.
#pragma once

#include <string>
#include <vector>

#include "sim/focus_trial.h"

namespace bench {

// A search and its verdict.
struct SearchOutcome {
  bool found;
  sim::FocusVerdict verdict;
};

// Runs at least `trials` searches on `worlds` devices at once. Sets *good to false when a device
// failed. Throws std::runtime_error.
std::vector<SearchOutcome> RunSearches(int trials, int worlds, bool* good);

// Moves of the focus drive: milliseconds from one to the next beyond the wait that the first is
// due. Empty where they could not be measured.
struct DriveOutcome {
  double stated_ms = 0;
  std::vector<double> beyond_ms;
};
DriveOutcome RunDrive(double seconds);

// A way for the lens mode to be at rest, and what it costs, in per cent of a processor.
struct LensRest {
  const char* id;
  const char* legend;
  double loop = -1;    // the loop's thread; negative where it could not be measured
  double worker = -1;  // all others
};
// All ways at once, each on a device of its own.
std::vector<LensRest> RunLensRests(int seconds);

}  // namespace bench
