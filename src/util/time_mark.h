// Time marks: a moment kept by its owner, and whether a number of milliseconds has passed since.
//
// Marks of the wall clock follow it when it is set; a clock that went back counts as a time-out,
// so that no wait hangs on it. Marks of the monotonic clock are of their own type. Nothing is
// kept between calls and nothing blocks; any thread may call.
#pragma once

#include <cstdint>

// Microseconds of the monotonic clock: for measuring and limiting, never for showing.
int64_t CUTIL_MonotonicUs();

// A moment of the wall clock.
struct TimeMark {
  uint32_t seconds;
  uint32_t microseconds;  // 0 to 999999
};

// A moment of the monotonic clock.
struct MonoTimeMark {
  uint32_t seconds;
  uint32_t nanoseconds;  // 0 to 999999999
};

// Takes a mark of the wall clock now. Returns 0.
int CUTIL_GetTime(TimeMark* mark_out);

// Returns -1 while less than `limit_ms` milliseconds have passed between `mark` and `now`, else
// 0; 0 as well when `now` is before `mark`. A negative limit is as good as endless.
int CUTIL_CheckTimeoutAt(const TimeMark& mark, const TimeMark& now, int limit_ms);

// The same with the wall clock's present time.
int CUTIL_CheckTimeout(const TimeMark& mark, int limit_ms);

// Returns the microseconds of the wall clock since `mark`. With the clock set back to an earlier
// second this is the difference of the two microsecond fields alone, which may be negative.
int64_t CUTIL_ElapsedUs(const TimeMark& mark);

// --- Part of the interface, but not called by the daemon ----------------------------------------

// Takes a mark of the monotonic clock now. Returns 0.
int CUTIL_GetTimeMono(MonoTimeMark* mark_out);

// CUTIL_CheckTimeout for such a mark, in whole microseconds.
int CUTIL_CheckTimeoutMono(const MonoTimeMark& mark, int limit_ms);
