// Which calls of the daemon are to fail, how, and what it has to make of it.
#pragma once

#include <string>
#include <vector>

#include "tests/fault/fault_point.h"

namespace fault {

// A call that the daemon made, as the library wrote it down.
struct Call {
  std::string name = "-";
  long number = 0;  // among the calls of this name; 0 for no call
  std::string path = "0";
  std::string subject = {};
  long nth = 0;  // among those of this name on this path
};

std::vector<Call> ReadLog();

// One failure to be tried.
struct Point {
  Call call = {};
  int error = 0;
  bool is_lasting = false;

  bool IsNone() const { return call.number == 0; }
  // In words, e.g. "read 3 (/dev/pts/0) EIO".
  std::string Name() const;
  // For the library.
  std::string Text() const;
};

// Every failure that a recorded session calls for. A call is known by the way through the program
// that leads to it: the first and the last call of each way fail, the first one with every errno
// that it may have, also for good where that happens, the last one with the usual errno.
std::vector<Point> PlanMatrix(const std::vector<Call>& calls);

// What a failure may lead to; running on lame, the daemon does without something.
enum class Course { kServes, kRunsLame, kMayEnd, kEnds };

struct Reaction {
  Course course = Course::kServes;
  int status = 0;  // when it ends by itself
};

// Where a call fails for good, one that comes later may be one that the daemon cannot do without.
Reaction ReactionTo(const Point& point);

}  // namespace fault
