#include "util/sleep.h"

#include <cerrno>
#include <ctime>

#include "util/notify.h"

namespace {

constexpr int64_t kUsPerS = 1'000'000;
constexpr int64_t kNsPerS = 1'000'000'000;
constexpr int64_t kNsPerUs = 1'000;

}  // namespace

int64_t CUTIL_MonotonicUs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * kUsPerS + now.tv_nsec / kNsPerUs;
}

void CUTIL_SleepUs(int64_t microseconds) {
  CUTIL_NotifyServe();
  timespec until;
  clock_gettime(CLOCK_MONOTONIC, &until);
  const int64_t ns = until.tv_nsec + microseconds % kUsPerS * kNsPerUs;
  until.tv_sec += static_cast<time_t>(microseconds / kUsPerS + ns / kNsPerS);
  until.tv_nsec = static_cast<long>(ns % kNsPerS);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}
