// What the daemon takes of the system, watched over a life of it.
#pragma once

#include <sys/types.h>

#include <string>

#include "sim/wait.h"
#include "tests/soak/report.h"

namespace soak {

// By how much the anonymous memory may grow after the first minute of a life, KiB: a few pages of
// stack or heap that come into use late. What waits for clients is given back before it is looked.
constexpr long kMostGrowthKib = 32;
// Share of a processor that a daemon without traffic may take; a lens asks and regulates.
constexpr double kMostIdleCpu = 0.3;

class Watches {
 public:
  explicit Watches(Report* report) : report_(report) {}

  // A life begins: `pid` serves and has no client yet. `warm_after` is its first minute, or less.
  void Begin(pid_t pid, sim::milliseconds warm_after, size_t descriptors);

  // Descriptors of the daemon with no client.
  size_t Descriptors() const { return descriptors_; }

  // Checks memory, threads and children: there is no client and nothing under way. `is_warm`: every
  // buffer has been in use.
  void Look(bool is_warm);

  // Checks the processor time of an idle while.
  void BeginIdle();
  void EndIdle();

  // What the daemon is doing, for one that hangs: its state, and the call that it waits in.
  std::string Doing() const;

  // Checks that the daemon has left no process, lock or taken semaphore.
  void CheckLeftovers();

 private:
  Report* report_;
  pid_t pid_ = -1;
  sim::Clock::time_point warm_;
  size_t descriptors_ = 0;
  size_t threads_ = 0;
  long memory_kib_ = 0;  // 0: not yet known
  double idle_cpu_ = 0;
  sim::Clock::time_point idle_since_;
};

}  // namespace soak
