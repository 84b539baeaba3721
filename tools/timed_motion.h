// Runs a motion for a given time and stops it in any case.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <optional>

namespace tools {

// Blocks all signals that would terminate or suspend the tool, except those of its own faults.
// Signals that the caller ignores (nohup) stay ignored.
sigset_t HoldSignalsBack();

// Returns the signal that arrived before `end`, or nothing.
std::optional<int> AwaitSignal(const sigset_t& signals, std::chrono::steady_clock::time_point end);

[[noreturn]] void FailBySignal(int signal);

// Calls `start`, waits for `duration`, calls `stop`. A signal that would terminate or suspend the
// tool ends the wait; then `stop` is called and Failure is thrown, with EXIT_STATUS_SIGNAL plus the
// signal's number. The signals remain blocked afterwards, so nothing may take long from then on. If
// `start` throws, nothing moves, and `stop` is not called.
void RunTimed(std::chrono::milliseconds duration, const std::function<void()>& start,
              const std::function<void()>& stop);

}  // namespace tools
