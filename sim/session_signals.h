// The signals that concern a session, readable from a descriptor while this object lives.
#pragma once

#include <sys/signalfd.h>

#include <csignal>
#include <optional>

#include "sim/unique_fd.h"

namespace sim {

class SessionSignals {
 public:
  SessionSignals();
  SessionSignals(const SessionSignals&) = delete;
  SessionSignals& operator=(const SessionSignals&) = delete;
  ~SessionSignals();

  // Readable when one has come.
  int Fd() const { return fd_.Get(); }

  // Takes the next signal that has come.
  std::optional<signalfd_siginfo> Take();

  // Whether the user wants an end: SIGINT, SIGTERM or SIGHUP has come since the last call. Takes
  // every signal that has come.
  bool TakeEnd();

  // The signal that did; 0 before.
  int EndSignal() const { return end_signal_; }

  // The mask before this object.
  const sigset_t& Before() const { return before_; }

 private:
  sigset_t before_;
  UniqueFd fd_;
  int end_signal_ = 0;
};

}  // namespace sim
