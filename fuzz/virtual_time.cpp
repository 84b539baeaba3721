#include "fuzz/virtual_time.h"

#include <sys/time.h>

#include <csignal>
#include <ctime>

#include "fuzz/check.h"

// The names that the linker gives to a wrapped function's replacement and to itself.
int WrapPpoll(pollfd* fds, nfds_t count, const timespec* limit,
              const sigset_t* mask) asm("__wrap_ppoll");
int WrapPpollChk(pollfd* fds, nfds_t count, const timespec* limit, const sigset_t* mask,
                 size_t size) asm("__wrap___ppoll_chk");
int WrapPoll(pollfd* fds, nfds_t count, int timeout_ms) asm("__wrap_poll");
int WrapPollChk(pollfd* fds, nfds_t count, int timeout_ms, size_t size) asm("__wrap___poll_chk");
int RealSystemPoll(pollfd* fds, nfds_t count, int timeout_ms) asm("__real_poll");
int WrapGettimeofday(timeval* now, void* zone) asm("__wrap_gettimeofday");
time_t WrapTime(time_t* out) asm("__wrap_time");
int64_t WrapMonotonicUs() asm("__wrap__Z17CUTIL_MonotonicUsv");
void WrapSleepUs(int64_t microseconds) asm("__wrap__Z13CUTIL_SleepUsl");

namespace fuzz {
namespace {

constexpr int64_t kUsPerS = 1'000'000;
constexpr int64_t kUsPerMs = 1'000;
constexpr int64_t kNsPerUs = 1'000;
// Longer than any move or pause of the daemon.
constexpr int64_t kBetweenExecutionsUs = 1000 * kUsPerS;

int64_t g_now_us = kBetweenExecutionsUs;

int Wait(pollfd* fds, nfds_t count, int64_t limit_us) {
  if (TheWaits().on_wait) TheWaits().on_wait(fds, count);
  const int ready = RealPoll(fds, count, 0);
  if (ready != 0) return ready;
  if (limit_us < 0) Fail("a wait without an end");
  PassTime(limit_us);
  return 0;
}

}  // namespace

int64_t NowUs() {
  return g_now_us;
}

void PassTime(int64_t us) {
  FUZZ_CHECK(us >= 0);
  g_now_us += us;
}

void BeginExecution() {
  g_now_us += kBetweenExecutionsUs;
  g_now_us -= g_now_us % kUsPerS;
  TheWaits() = {};
}

int RealPoll(pollfd* fds, nfds_t count, int real_ms) {
  return RealSystemPoll(fds, count, real_ms);
}

Waits& TheWaits() {
  static Waits waits;
  return waits;
}

}  // namespace fuzz

int WrapPpoll(pollfd* fds, nfds_t count, const timespec* limit, const sigset_t* mask) {
  int64_t limit_us = -1;
  if (limit != nullptr) limit_us = limit->tv_sec * fuzz::kUsPerS + limit->tv_nsec / fuzz::kNsPerUs;
  // Only the pass's sleep lets signals through.
  const bool is_pass = mask != nullptr && fuzz::TheWaits().on_pass;
  return is_pass ? fuzz::TheWaits().on_pass(fds, count, limit_us)
                 : fuzz::Wait(fds, count, limit_us);
}

int WrapPpollChk(pollfd* fds, nfds_t count, const timespec* limit, const sigset_t* mask,
                 size_t /*size*/) {
  return WrapPpoll(fds, count, limit, mask);
}

int WrapPoll(pollfd* fds, nfds_t count, int timeout_ms) {
  return fuzz::Wait(fds, count, timeout_ms < 0 ? -1 : timeout_ms * fuzz::kUsPerMs);
}

int WrapPollChk(pollfd* fds, nfds_t count, int timeout_ms, size_t /*size*/) {
  return WrapPoll(fds, count, timeout_ms);
}

int WrapGettimeofday(timeval* now, void* /*zone*/) {
  fuzz::PassTime(1);
  now->tv_sec = static_cast<time_t>(fuzz::NowUs() / fuzz::kUsPerS);
  now->tv_usec = static_cast<suseconds_t>(fuzz::NowUs() % fuzz::kUsPerS);
  return 0;
}

time_t WrapTime(time_t* out) {
  fuzz::PassTime(1);
  const time_t now = static_cast<time_t>(fuzz::NowUs() / fuzz::kUsPerS);
  if (out != nullptr) *out = now;
  return now;
}

int64_t WrapMonotonicUs() {
  fuzz::PassTime(1);
  return fuzz::NowUs();
}

void WrapSleepUs(int64_t microseconds) {
  fuzz::PassTime(microseconds > 0 ? microseconds : 0);
}
