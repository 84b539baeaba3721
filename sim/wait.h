// Waiting for something to become true, for tests and peers.
#pragma once

#include <chrono>
#include <thread>

namespace sim {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Longest that a test waits for what should happen at once.
constexpr milliseconds kPatience{5000};

// Asks `condition` again and again until it is true or `limit` has passed. Returns its last
// answer.
template <typename Condition>
bool WaitUntil(Condition condition, milliseconds limit = kPatience) {
  const auto end = Clock::now() + limit;
  while (!condition()) {
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

}  // namespace sim
