// Extracts the points that focus searches print from a log. Does no I/O.
//
// A completed search prints one line: "TRACE", its zoom, the sharpest focus, and the distance of
// that focus from the start of the search, all in motor steps.
#pragma once

#include <string_view>
#include <vector>

namespace tools {

// One search. `line` counts from 1; `diff` is the focus minus the start focus.
struct TracePoint {
  int line;
  int zoom;
  int focus;
  int diff;
};

struct TraceLog {
  std::vector<TracePoint> points;  // in the log's order
  std::vector<int> malformed;      // lines that begin as a point does and do not go on as one
  int lines = 0;
};

// Extracts the points from the daemon's output. Text before the word TRACE (a time stamp) is
// skipped, blanks may replace tabs, and all other lines are ignored.
TraceLog ReadTrace(std::string_view text);

}  // namespace tools
