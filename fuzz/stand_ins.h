// What stands in for the parts of the daemon that reach beyond it: time and waits, shell commands,
// the reboot, the worker thread, the serial line. Linked in their place (CMakeLists.txt: --wrap).
//
// No wait takes any time; the clock is set on by it. Every look at the clock takes a microsecond,
// so that a loop that watches it ends.
#pragma once

#include <poll.h>

#include <csetjmp>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace fuzz {

constexpr int64_t kUsPerMs = 1000;
constexpr int64_t kUsPerS = 1'000'000;

// Microseconds of the virtual clock; wall clock and monotonic clock are one.
int64_t NowUs();
void PassTime(int64_t us);

// Goes on to a whole second far enough ahead that nothing of an earlier execution is pending.
void BeginExecution();

// What poll says about the descriptors now; waits up to `real_ms` of the machine's own time for
// bytes that the kernel still has under way.
int RealPoll(pollfd* fds, nfds_t count, int real_ms) asm("__real_poll");

// What the world does while the daemon waits. Both may be empty; BeginExecution empties them.
struct Waits {
  // The sleep of a mode's pass. `limit_us` is negative for one without an end. Returns as poll.
  std::function<int(pollfd* fds, nfds_t count, int64_t limit_us)> on_pass;
  // Before any other wait looks at its descriptors: the peers' chance to have sent something.
  std::function<void(const pollfd* fds, nfds_t count)> on_wait;
};
inline Waits g_waits;

// The shell commands since BeginExecution, as the shell would get them; none is run. One with
// anything but harmless words in it is a finding.
inline std::vector<std::string> g_commands;

// Where CUTIL_Reboot goes, which does not return; a reboot while it is null is a finding.
inline std::jmp_buf* g_after_reboot = nullptr;

// Lets the worker thread that was started last, if it still runs, make one step. It has no thread
// here.
void StepWorker();

}  // namespace fuzz
