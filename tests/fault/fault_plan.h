// Which calls of the daemon are to fail, how, and what it has to make of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/fault/fault_point.h"

namespace fault {

// A call that the daemon made, as the library wrote it down.
struct Call {
  bool failed = false;
  std::string name;
  long number = 0;
  std::string path;
  std::string subject;
};

std::vector<Call> ParseLog(const std::string& text);

// One failure to be tried.
struct Point {
  Call call;
  int error = 0;
  long times = 1;

  bool IsLasting() const { return times == FAULT_LASTING; }
  // In words, e.g. "read 3 (/dev/pts/0) EIO".
  std::string Name() const;
  // For the library.
  std::string Text() const;
};

// Every failure that a recorded session calls for. A call is known by the way through the program
// that leads to it: the first and the last call of each way fail, the first one with every errno
// that it may have, also for good where that happens, the last one with the usual errno.
std::vector<Point> PlanMatrix(const std::vector<Call>& calls);

// What a failure has to lead to, beyond being survived.
enum class Course { kServes, kLimps, kMayEnd, kEnds };

struct Reaction {
  std::string text;                 // printed or logged; "" for nothing
  Course course = Course::kServes;  // limping, it runs without something
  int status = 0;                   // when it ends by itself
};

std::optional<Reaction> ReactionTo(const Point& point);

// Whether the daemon may end with this status while a call fails for good: one that comes later
// may be one that it cannot do without.
bool MayEndLater(const Point& point, int status);

}  // namespace fault
