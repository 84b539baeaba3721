// A survey of a lens: the real daemon searches the focus at each entry of the lens's curve, several
// times, and what it prints is kept, as whoever calibrates a lens does it on a device.
//
// The entries are shared out among worlds that work at once. At each entry the daemon is started
// anew with the lens standing there, a little out of focus; between two searches the focus is
// moved by a few steps, so that the next one looks at other stops. Some searches are disturbed:
// meanwhile something nearer or farther stands in front of the lens.
#pragma once

#include <span>
#include <string>

#include "lens/tracking_tables.h"

namespace sim {

struct LensSurvey {
  std::span<const ZfEntry> curve;  // the lens's own; the daemon keeps to the one that it has
  std::string daemon;              // its path
  int worlds = 8;
  int searches = 3;        // at each entry
  double noise = 0.01;     // largest error of a focus measure, share of the peak's height
  double disturbed = 0.1;  // share of the searches that are disturbed
};

struct SurveyResult {
  std::string log;  // what the daemons printed, their serial trace with it
  int searches;
  int disturbed;
};

// The calling process must have one thread. Throws std::runtime_error when a world fails.
SurveyResult RunSurvey(const LensSurvey& survey);

}  // namespace sim
