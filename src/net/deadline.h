// A time limit in whole seconds of the wall clock, as the senders take it.
#pragma once

#include <ctime>

struct ZskDeadline {
  bool set;       // without one nothing ever passes
  time_t second;  // passed once the clock shows a later second
};

// A deadline `timeout_s` seconds from now: it passes between timeout_s and timeout_s + 1 seconds
// from now. 0 sets none.
ZskDeadline ZSK_DeadlineIn(int timeout_s);

bool ZSK_DeadlinePassed(const ZskDeadline& deadline);

// Milliseconds until a deadline that is set passes, at least 1.
int ZSK_DeadlineLeftMs(const ZskDeadline& deadline);
