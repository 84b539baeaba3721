#include "net/deadline.h"

#include <sys/time.h>

#include <algorithm>
#include <climits>
#include <cstdint>

namespace {

constexpr int64_t kMsPerS = 1000;
constexpr int64_t kUsPerMs = 1000;

timeval Now() {
  timeval now;
  gettimeofday(&now, nullptr);
  return now;
}

}  // namespace

ZskDeadline ZSK_DeadlineIn(int timeout_s) {
  return {.set = timeout_s != 0, .second = Now().tv_sec + timeout_s};
}

bool ZSK_DeadlinePassed(const ZskDeadline& deadline) {
  return deadline.set && Now().tv_sec > deadline.second;
}

int ZSK_DeadlineLeftMs(const ZskDeadline& deadline) {
  const timeval now = Now();
  const int64_t left =
      static_cast<int64_t>(deadline.second + 1 - now.tv_sec) * kMsPerS - now.tv_usec / kUsPerMs;
  return static_cast<int>(std::clamp<int64_t>(left, 1, INT_MAX));
}
