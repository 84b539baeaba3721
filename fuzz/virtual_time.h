// Time and waits of a fuzz target: no wait takes any time, the clock is set on by it.
//
// Linked in place of the daemon's clocks, pauses and polls (CMakeLists.txt: --wrap). Every look at
// the clock takes a microsecond, so that a loop that watches it ends.
#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>

namespace fuzz {

// Microseconds of the virtual clock; wall clock and monotonic clock are one.
int64_t NowUs();
void PassTime(int64_t us);

// Goes on to a whole second far enough ahead that nothing of an earlier execution is pending.
void BeginExecution();

// What poll says about the descriptors now; waits up to `real_ms` of the machine's own time for
// bytes that the kernel still has under way.
int RealPoll(pollfd* fds, nfds_t count, int real_ms);

// What the world does while the daemon waits. Both may be empty; BeginExecution empties them.
struct Waits {
  // The sleep of a mode's pass. `limit_us` is negative for one without an end. Returns as poll.
  std::function<int(pollfd* fds, nfds_t count, int64_t limit_us)> on_pass;
  // Before any other wait looks at its descriptors: the peers' chance to have sent something.
  std::function<void(const pollfd* fds, nfds_t count)> on_wait;
};
Waits& TheWaits();

}  // namespace fuzz
