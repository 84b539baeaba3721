#include "util/time_mark.h"

#include <sys/time.h>

#include <ctime>

namespace {

constexpr int64_t kUsPerS = 1'000'000;
constexpr int64_t kUsPerMs = 1000;
constexpr uint32_t kNsPerUs = 1000;

// With 32 bits the clock would go back in 2038; the build selects a 64-bit time_t.
static_assert(sizeof(time_t) == sizeof(int64_t));

TimeMark WallClockNow() {
  timeval now;
  gettimeofday(&now, nullptr);
  return {.seconds = static_cast<uint32_t>(now.tv_sec),
          .microseconds = static_cast<uint32_t>(now.tv_usec)};
}

MonoTimeMark MonotonicNow() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return {.seconds = static_cast<uint32_t>(now.tv_sec),
          .nanoseconds = static_cast<uint32_t>(now.tv_nsec)};
}

TimeMark InMicroseconds(const MonoTimeMark& mark) {
  return {.seconds = mark.seconds, .microseconds = mark.nanoseconds / kNsPerUs};
}

int64_t ElapsedUs(const TimeMark& mark, const TimeMark& now) {
  const int64_t fraction =
      static_cast<int64_t>(now.microseconds) - static_cast<int64_t>(mark.microseconds);
  if (now.seconds <= mark.seconds) return fraction;
  return static_cast<int64_t>(now.seconds - mark.seconds) * kUsPerS + fraction;
}

}  // namespace

int CUTIL_GetTime(TimeMark* mark_out) {
  *mark_out = WallClockNow();
  return 0;
}

int CUTIL_GetTimeMono(MonoTimeMark* mark_out) {
  *mark_out = MonotonicNow();
  return 0;
}

int64_t CUTIL_MonotonicUs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * kUsPerS + now.tv_nsec / int64_t{kNsPerUs};
}

int CUTIL_CheckTimeoutAt(const TimeMark& mark, const TimeMark& now, int limit_ms) {
  const int64_t elapsed_us = ElapsedUs(mark, now);
  if (now.seconds < mark.seconds || elapsed_us < 0) return 0;
  const int64_t limit_us = limit_ms * kUsPerMs;
  return static_cast<uint64_t>(elapsed_us) < static_cast<uint64_t>(limit_us) ? -1 : 0;
}

int CUTIL_CheckTimeout(const TimeMark& mark, int limit_ms) {
  return CUTIL_CheckTimeoutAt(mark, WallClockNow(), limit_ms);
}

int CUTIL_CheckTimeoutMono(const MonoTimeMark& mark, int limit_ms) {
  return CUTIL_CheckTimeoutAt(InMicroseconds(mark), InMicroseconds(MonotonicNow()), limit_ms);
}

int64_t CUTIL_ElapsedUs(const TimeMark& mark) {
  return ElapsedUs(mark, WallClockNow());
}
