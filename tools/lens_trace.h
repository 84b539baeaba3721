// The points that focus searches print, taken out of a log. Free of I/O.
//
// A finished search prints one line, "TRACE", its zoom, the focus that was sharpest, and by how
// much that differs from where it started, all in motor steps.
#pragma once

#include <string_view>
#include <vector>

namespace tools {

// One search. `line` counts from 1; `diff` is focus less where the search started.
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

// Takes the points out of what the daemon printed. Whatever stands before the word TRACE in a
// line (a log's time stamp) is skipped, tabs may have become blanks, all other lines are ignored.
TraceLog ReadTrace(std::string_view text);

}  // namespace tools
