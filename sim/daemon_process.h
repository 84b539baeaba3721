// Runs the daemon as a child process and reads its kernel counters.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "sim/device.h"
#include "sim/wait.h"
#include "tools/processes.h"

namespace sim {

struct LaunchOptions {
  int output_fd = -1;                  // stdout and stderr; -1: a file of the world for each
  std::string preload;                 // library; "": none
  std::vector<std::string> variables;  // NAME=VALUE, added to the environment of this process
};

// Kernel counters of a process and its descendants, which count because some servers fork a process
// for each client.

// Processor time of all threads so far, user and system, in seconds, to the nanosecond.
double CpuSeconds(pid_t pid);

// Voluntary context switches of all threads so far.
double WakeUps(pid_t pid);

struct Memory {
  double resident_kib = 0;
  double anonymous_kib = 0;  // not backed by a file: heap, stacks, written data
};
Memory MemoryOf(pid_t pid);

class DaemonProcess {
 public:
  // Starts `program` with `arguments`, on the virtual clock if that is running, in a process group
  // of its own: terminal signals do not reach it. Throws std::runtime_error.
  DaemonProcess(std::string program, std::vector<std::string> arguments,
                const LaunchOptions& options = {});
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;
  // Kills the daemon if it is still running and deletes its output files.
  ~DaemonProcess();

  pid_t Pid() const { return pid_; }

  // Waits until the daemon serves a device of this configuration: the command channel and the PTZ
  // port, if configured, are bound. Returns false on exit of the daemon or on timeout.
  bool WaitServing(const DeviceConfig& config, milliseconds limit = kPatience);

  // Does nothing once WaitEnd has reaped the process.
  void Signal(int signal) const;

  // Waits for the daemon to exit. Returns the exit status, -N if signal N killed it, or nullopt on
  // timeout.
  std::optional<int> WaitEnd(milliseconds limit = kPatience);

  // Sends SIGTERM, then calls WaitEnd.
  std::optional<int> Stop(milliseconds limit = kPatience);

  // Everything printed so far to the output files of the world.
  std::string Output() const;
  std::string Errors() const;

  double CpuSeconds() const { return sim::CpuSeconds(pid_); }

 private:
  std::string output_path_;
  std::string error_path_;
  pid_t pid_ = -1;
  std::optional<int> status_;
};

using tools::IsPortBound;

// Number of occurrences of `part` in `text`.
inline size_t CountOf(const std::string& part, const std::string& text) {
  size_t count = 0;
  for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size())
    ++count;
  return count;
}

}  // namespace sim
