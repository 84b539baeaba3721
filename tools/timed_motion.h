// A motion that lasts for a given time and is stopped whatever happens meanwhile.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <optional>

namespace tools {

// Holds back all signals that would end or suspend the tool, but for a fault of its own. Signals
// that the caller ignores (nohup) stay ignored.
sigset_t HoldSignalsBack();

// The signal that came before `end`; nothing when none did.
std::optional<int> AwaitSignal(const sigset_t& signals, std::chrono::steady_clock::time_point end);

[[noreturn]] void FailBySignal(int signal);

// Calls `start`, waits for `duration`, calls `stop`. A signal that would end or suspend the tool
// ends the wait instead, `stop` is called, and the motion throws Failure with EXIT_STATUS_SIGNAL
// plus the signal's number. Signals are held back from now on: nothing may last long afterwards.
// When `start` throws, nothing moves, and `stop` is not called.
void RunTimed(std::chrono::milliseconds duration, const std::function<void()>& start,
              const std::function<void()>& stop);

}  // namespace tools
