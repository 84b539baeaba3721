// The daemon as a child process: started, watched, stopped; and what the kernel counts of it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "sim/device.h"
#include "sim/wait.h"

namespace sim {

// How a process is started.
struct LaunchOptions {
  int output_fd = -1;   // of both output streams; -1: each goes to a file of the world
  std::string preload;  // a library; "": none
  std::vector<std::string> variables;  // NAME=VALUE, besides those of this process
};

// What the kernel counts of a process. Its descendants count with it: some servers fork one for
// each client.

// Processor time of all threads so far, user and system, in seconds, to the nanosecond.
double CpuSeconds(pid_t pid);

// How often the threads have gone to sleep of their own accord so far.
double WakeUps(pid_t pid);

struct Memory {
  double resident_kib = 0;
  double anonymous_kib = 0;  // not backed by a file: heap, stacks, written data
};
Memory MemoryOf(pid_t pid);

class DaemonProcess {
 public:
  // Starts `program` with `arguments`, on the virtual clock if that runs. It has a process group of
  // its own, so that the keys of a terminal do not reach it. Throws std::runtime_error.
  DaemonProcess(std::string program, std::vector<std::string> arguments,
                const LaunchOptions& options = {});
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;
  // Ends the daemon if it still runs. What it printed is gone.
  ~DaemonProcess();

  pid_t Pid() const { return pid_; }

  // Waits until the daemon serves a device of this configuration: every port that it should
  // have is bound. Returns false when it has ended or does not get there.
  bool WaitServing(const DeviceConfig& config, milliseconds limit = kPatience);

  // Nothing when WaitEnd has seen its end.
  void Signal(int signal) const;

  // Waits for the end. Returns the exit status, -N when signal N ended it, nothing when it
  // still runs after `limit`.
  std::optional<int> WaitEnd(milliseconds limit = kPatience);

  // SIGTERM, then WaitEnd.
  std::optional<int> Stop(milliseconds limit = kPatience);

  // Everything printed so far to the files of the world.
  std::string Output() const;
  std::string Errors() const;

  double CpuSeconds() const { return sim::CpuSeconds(pid_); }

 private:
  std::string output_path_;
  std::string error_path_;
  pid_t pid_ = -1;
  std::optional<int> status_;
};

// True when a socket of this world is bound to the local port. `table` is a file of /proc/net:
// "udp", or "tcp" for listeners.
bool IsPortBound(const std::string& table, int port);

// How often `part` stands in what a process printed.
inline size_t CountOf(const std::string& part, const std::string& text) {
  size_t count = 0;
  for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size())
    ++count;
  return count;
}

}  // namespace sim
