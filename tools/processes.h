// Processes of this device and what they have open, from /proc. Only root can see this for the
// processes of other users.
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

// Returns "rs232d (4711)", or a text that the process has ended.
std::string ProcessText(pid_t pid);

// Returns nothing if no process has this pid.
std::optional<Process> FindProcess(pid_t pid);
std::vector<Process> ProcessesNamed(const std::string& name);

// Returns the processes that have this file open. Follows a link.
std::vector<Process> ProcessesWithFile(const std::string& path);

// Returns the seconds since a process started.
long SecondsSinceStart(pid_t pid);

// Returns true if systemd starts the daemon and restarts it.
bool IsService();

struct PortHolder {
  bool is_taken = false;
  pid_t pid = 0;  // 0 if the process is hidden
};

// Finds the process that has bound a UDP port, or listens on a TCP port.
PortHolder HolderOfPort(const char* protocol, int port);

// Returns the IPv4 addresses of the peers connected to a TCP port.
std::vector<std::string> ClientsOfPort(int port);

}  // namespace tools
