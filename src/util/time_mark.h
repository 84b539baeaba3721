// Time marks: timestamps that the caller stores, and timeout tests on them.
//
// Wall-clock marks follow changes of the clock; a clock that was set back counts as a timeout, so
// no wait can hang on it. Monotonic marks have their own type. Keeps no state between calls and
// never blocks; any thread may call.
#pragma once

#include <cstdint>

// Microseconds of the monotonic clock. For durations and timeouts, not for display.
int64_t CUTIL_MonotonicUs();

// A wall-clock timestamp.
struct TimeMark {
  uint32_t seconds;
  uint32_t microseconds;  // 0 to 999999
};

// A monotonic timestamp.
struct MonoTimeMark {
  uint32_t seconds;
  uint32_t nanoseconds;  // 0 to 999999999
};

// Stores the current wall-clock time. Returns 0.
int CUTIL_GetTime(TimeMark* mark_out);

// Returns -1 while less than `limit_ms` milliseconds have passed from `mark` to `now`, else 0. Also
// returns 0 if `now` is before `mark`. A negative limit never expires.
int CUTIL_CheckTimeoutAt(const TimeMark& mark, const TimeMark& now, int limit_ms);

// The same test with the current wall-clock time as `now`.
int CUTIL_CheckTimeout(const TimeMark& mark, int limit_ms);

// Returns the wall-clock microseconds since `mark`. If the clock was set back to an earlier second,
// returns the difference of the two microsecond fields alone, which may be negative.
int64_t CUTIL_ElapsedUs(const TimeMark& mark);

// --- Interface functions that the daemon does not call ------------------------------------------

// Stores the current monotonic time. Returns 0.
int CUTIL_GetTimeMono(MonoTimeMark* mark_out);

// CUTIL_CheckTimeout for a monotonic mark, in whole microseconds.
int CUTIL_CheckTimeoutMono(const MonoTimeMark& mark, int limit_ms);
