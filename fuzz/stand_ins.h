// Replacements for the parts of the daemon that act on the system: time and waits, shell commands,
// the reboot and the worker thread. The linker substitutes them (CMakeLists.txt: --wrap).
//
// Waits take no real time; they advance the virtual clock. Each read of the clock takes a
// microsecond, so a loop that polls the clock ends.
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

// Time of the virtual clock in microseconds. Wall clock and monotonic clock are the same.
int64_t NowUs();
void PassTime(int64_t us);

// Advances the clock to a whole second after all timeouts of earlier executions, and resets the
// state below.
void BeginExecution();

// Polls the descriptors with the real poll; waits up to `real_ms` of real time for bytes in transit
// in the kernel.
int RealPoll(pollfd* fds, nfds_t count, int real_ms) asm("__real_poll");

// Hooks for the waits of the daemon. Both may be empty; BeginExecution clears them.
struct Waits {
  // Replaces the wait of a mode's pass. `limit_us` is negative if it has no timeout. Returns as
  // poll does.
  std::function<int(pollfd* fds, nfds_t count, int64_t limit_us)> on_pass;
  // Runs before any other wait polls its descriptors, so that peers can send.
  std::function<void(const pollfd* fds, nfds_t count)> on_wait;
};
inline Waits g_waits;

// The shell commands since BeginExecution. They are not run. A command with unexpected characters
// is a finding.
inline std::vector<std::string> g_commands;

// Target of the jump out of CUTIL_Reboot, which does not return; null: a reboot is a finding.
inline std::jmp_buf* g_after_reboot = nullptr;

// Runs one step of the last started worker, if it is still running. It has no thread of its own
// here.
void StepWorker();

}  // namespace fuzz
