#include "sim/session_signals.h"

#include <unistd.h>

namespace sim {

SessionSignals::SessionSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
    sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, &before_);
  fd_.Reset(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

SessionSignals::~SessionSignals() {
  sigprocmask(SIG_SETMASK, &before_, nullptr);
}

std::optional<signalfd_siginfo> SessionSignals::Take() {
  signalfd_siginfo info = {};
  if (read(fd_.Get(), &info, sizeof(info)) != sizeof(info)) return std::nullopt;
  return info;
}

bool SessionSignals::TakeEnd() {
  bool end = false;
  while (const auto info = Take()) {
    if (info->ssi_signo == SIGCHLD) continue;
    end_signal_ = static_cast<int>(info->ssi_signo);
    end = true;
  }
  return end;
}

}  // namespace sim
