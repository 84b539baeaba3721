// Waits for conditions, for tests and peers.
#pragma once

#include <poll.h>

#include <algorithm>
#include <chrono>

namespace sim {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Timeout for events that should happen at once.
constexpr milliseconds kPatience{5000};

// The work to be done while this process waits: the far end of the line and the peers.
class Pump {
 public:
  Pump() = default;
  Pump(const Pump&) = delete;
  Pump& operator=(const Pump&) = delete;
  virtual ~Pump() = default;

  // Serves until `fd` (-1: none) is ready for `events` of poll, or until `end`. Returns true if it
  // is ready.
  virtual bool Serve(Clock::time_point end, int fd, short events) = 0;
};

// The pump of this process; null if none.
inline Pump* g_pump = nullptr;

// Time until `end`, rounded up; never negative.
inline milliseconds Left(Clock::time_point end) {
  return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(end - Clock::now()));
}

// Waits until `fd` (-1: none) is ready for `events` of poll, or until `end`. Returns true if it is
// ready.
inline bool WaitReady(int fd, short events, Clock::time_point end) {
  if (g_pump != nullptr) return g_pump->Serve(end, fd, events);
  pollfd source = {.fd = fd, .events = events, .revents = 0};
  return poll(&source, 1, static_cast<int>(Left(end).count())) > 0;
}

// Polls `condition` until it is true or `limit` has passed. Returns its last value.
template <typename Condition>
bool WaitUntil(Condition condition, milliseconds limit = kPatience) {
  const auto begin = Clock::now();
  const auto end = begin + limit;
  while (!condition()) {
    const auto now = Clock::now();
    if (now >= end) return false;
    // Back off: a long wait does not need a fast reaction.
    constexpr int kShare = 16;
    const Clock::duration pause =
        std::clamp<Clock::duration>((now - begin) / kShare, milliseconds(1), milliseconds(20));
    WaitReady(-1, 0, std::min(end, now + pause));
  }
  return true;
}

}  // namespace sim
