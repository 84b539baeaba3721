// Plans the failures of the daemon's calls and the expected reactions.
#pragma once

#include <string>
#include <vector>

#include "tests/fault/fault_point.h"

namespace fault {

// A call of the daemon, as logged by the library.
struct Call {
  std::string name = "-";
  long number = 0;  // among the calls with this name; 0: no call
  std::string path = "0";
  std::string subject = {};
  long nth = 0;  // among the calls with this name and path
};

std::vector<Call> ReadLog();

// A failure to inject.
struct Point {
  Call call = {};
  int error = 0;
  bool is_lasting = false;

  bool IsNone() const { return call.number == 0; }
  // For reports, e.g. "read 3 (/dev/pts/0) EIO".
  std::string Name() const;
  // For the library (FAULT_POINT).
  std::string Text() const;
};

// Returns all failures to inject, given the calls of a recorded session. Calls are grouped by their
// call path through the program. The first call of each path fails with every possible errno, also
// permanently where that occurs; the last call fails with the most common errno.
std::vector<Point> PlanMatrix(const std::vector<Call>& calls);

// The possible outcomes of a failure; kRunsLame: the daemon continues with reduced function.
enum class Course { kServes, kRunsLame, kMayEnd, kEnds };

struct Reaction {
  Course course = Course::kServes;
  int status = 0;  // if it exits by itself
};

// A permanent failure may also hit a later call that the daemon needs.
Reaction ReactionTo(const Point& point);

}  // namespace fault
