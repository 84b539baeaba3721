// The processes of this device and what they hold, read from /proc. Only root sees the descriptors
// of other users' processes.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tools {

struct Process {
  pid_t pid;
  std::string name;
};

// "rs232d (4711)", or "an ended process (4711)".
std::string ProcessText(pid_t pid);

std::optional<Process> FindProcess(pid_t pid);
std::vector<Process> ProcessesNamed(const std::string& name);

// The processes that have this file open. Follows links.
std::vector<Process> ProcessesWithFile(const std::string& path);

// Seconds since a process started.
long SecondsSinceStart(pid_t pid);

// True if systemd runs the daemon and restarts it after it exits.
bool IsService();

// True if a process has bound a port of "udp", or listens on a port of "tcp".
bool IsPortBound(const std::string& protocol, int port);

struct PortHolder {
  bool is_taken = false;
  pid_t pid = 0;  // 0: hidden from this user
};

// Returns the process that IsPortBound found.
PortHolder HolderOfPort(const std::string& protocol, int port);

// The IPv4 addresses and ports of the clients that are connected to a TCP port.
std::vector<std::string> ClientsOfPort(int port);

}  // namespace tools
