#include "util/sleep.h"

#include <cerrno>
#include <ctime>

void CUTIL_SleepUs(int64_t microseconds) {
  constexpr int64_t kNsPerS = 1'000'000'000;
  timespec until;
  clock_gettime(CLOCK_MONOTONIC, &until);
  const int64_t ns = until.tv_nsec + microseconds % 1'000'000 * 1000;
  until.tv_sec += static_cast<time_t>(microseconds / 1'000'000 + ns / kNsPerS);
  until.tv_nsec = static_cast<long>(ns % kNsPerS);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}
