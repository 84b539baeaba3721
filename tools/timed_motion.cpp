#include "tools/timed_motion.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <string>

#include "tools/failure.h"

namespace tools {

namespace {

using Clock = std::chrono::steady_clock;

// Signals whose default action neither terminates nor suspends a program.
constexpr std::array kHarmless = {SIGCHLD, SIGCONT, SIGURG, SIGWINCH};

bool IsHarmless(int signal) {
  struct sigaction action;
  return std::ranges::find(kHarmless, signal) != kHarmless.end() ||
         (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN);
}

timespec TimeUntil(Clock::time_point end) {
  using std::chrono::nanoseconds;
  const nanoseconds left = std::max(end - Clock::now(), Clock::duration::zero());
  const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
  timespec time = {};
  time.tv_sec = static_cast<time_t>(seconds.count());
  time.tv_nsec = static_cast<decltype(time.tv_nsec)>((left - seconds).count());
  return time;
}

}  // namespace

sigset_t HoldSignalsBack() {
  sigset_t held;
  sigfillset(&held);
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    if (IsHarmless(signal)) sigdelset(&held, signal);
  }
  sigprocmask(SIG_BLOCK, &held, nullptr);
  return held;
}

std::optional<int> AwaitSignal(const sigset_t& signals, Clock::time_point end) {
  while (true) {
    const timespec time = TimeUntil(end);
    const int signal = sigtimedwait(&signals, nullptr, &time);
    if (signal > 0) return signal;
    if (errno == EAGAIN) return std::nullopt;
  }
}

void FailBySignal(int signal) {
  throw Failure(static_cast<ExitStatus>(EXIT_STATUS_SIGNAL + signal),
                std::string("stopped early: ") + strsignal(signal));
}

void RunTimed(std::chrono::milliseconds duration, const std::function<void()>& start,
              const std::function<void()>& stop) {
  const sigset_t signals = HoldSignalsBack();
  start();
  const auto signal = AwaitSignal(signals, Clock::now() + duration);
  stop();
  if (signal.has_value()) FailBySignal(*signal);
}

}  // namespace tools
