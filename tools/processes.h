// Who has what on this device, as /proc tells it. What another user's processes have is hidden from
// all but root.
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

// "rs232d (4711)", or that it is gone.
std::string ProcessText(pid_t pid);

// Nothing where there is none of that number.
std::optional<Process> FindProcess(pid_t pid);
std::vector<Process> ProcessesNamed(const std::string& name);

// The processes that have this file open; of a link, what it leads to.
std::vector<Process> ProcessesWithFile(const std::string& path);

// Seconds since a process began.
long SecondsSinceStart(pid_t pid);

// Whether systemd starts the daemon, also again after its end.
bool IsService();

struct PortHolder {
  bool is_taken = false;
  pid_t pid = 0;  // 0 where the process is hidden
};

// Who has bound a UDP port, or listens at a TCP port.
PortHolder HolderOfPort(const char* protocol, int port);

// The addresses of those who are connected to a TCP port, by IPv4.
std::vector<std::string> ClientsOfPort(int port);

}  // namespace tools
