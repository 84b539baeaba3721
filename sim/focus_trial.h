// Trials of the focus search: scenes in front of a lens, and what a search made of them.
#pragma once

#include <random>
#include <span>

#include "sim/camera_daemon.h"

namespace sim {

enum class TrialKind { kSharp, kBroad, kNoisy, kPlateau, kTwins, kOutside, kFlat };
constexpr int kTrialKinds = 7;

const char* NameOf(TrialKind kind);

struct FocusTrial {
  TrialKind kind;
  int half_width;
  Scene scene;
};

// A trial of each kind in turn by `index`, for a lens that stands at `start`. The peak lies
// somewhere within the search's reach around `home`, seldom (kOutside: always) beyond it.
FocusTrial MakeFocusTrial(int index, const LensPose& start, int home, int half_width,
                          std::mt19937* random);

struct FocusVerdict {
  bool rule_kept;     // the best measure, of equal ones the last, is where the lens ended
  bool always_still;  // no measure was taken while the lens moved
  int measures;       // the last one, which decides nothing, included
  // Steps between where it ended and the nearest of the sharpest positions that the interval
  // holds, by the scene without its noise.
  int error;
  // From the first event that is seen to the last measure, and the waits that are due in it.
  double elapsed_ms;
  double waits_ms;

  // Within half a fine step of the peak; within a whole one where the measures are noisy.
  bool Found(const FocusTrial& trial) const;
};

// `frames` and `readings` are those of one search, at least two readings; `found` is where the
// lens stands after it.
FocusVerdict JudgeFocusSearch(const FocusTrial& trial, std::span<const LensFrame> frames,
                              std::span<const FocusReading> readings, const LensPose& found);

}  // namespace sim
