#include "util/sleep.h"

#include <cerrno>
#include <ctime>

#include "util/notify.h"

namespace {

constexpr int64_t kNsPerS = 1'000'000'000;
constexpr int64_t kNsPerUs = 1'000;

int64_t MonotonicNs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * kNsPerS + now.tv_nsec;
}

void SleepUntil(int64_t monotonic_ns) {
  const timespec until = {.tv_sec = static_cast<time_t>(monotonic_ns / kNsPerS),
                          .tv_nsec = static_cast<long>(monotonic_ns % kNsPerS)};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

}  // namespace

void CUTIL_SleepUs(int64_t microseconds) {
  const int64_t until_ns = MonotonicNs() + microseconds * kNsPerUs;
  while (true) {
    CUTIL_NotifyServe();
    const int64_t report_us = CUTIL_NotifyWaitUs();
    if (report_us >= (until_ns - MonotonicNs()) / kNsPerUs) break;
    SleepUntil(MonotonicNs() + report_us * kNsPerUs);
  }
  SleepUntil(until_ns);
}
