// A deadline in whole seconds of the wall clock.
#pragma once

#include <ctime>

struct ZskDeadline {
  bool set;       // false: no deadline, it never passes
  time_t second;  // passed as soon as the clock shows a later second
};

// Returns a deadline `timeout_s` seconds from now. It passes between timeout_s and timeout_s + 1
// seconds from now. With a timeout_s of 0, it never passes.
ZskDeadline ZSK_DeadlineIn(int timeout_s);

bool ZSK_DeadlinePassed(const ZskDeadline& deadline);

// Returns the milliseconds until `deadline` passes, at least 1. The deadline must be set.
int ZSK_DeadlineLeftMs(const ZskDeadline& deadline);
