#include "tools/processes.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/format.h"

namespace tools {

namespace {

namespace fs = std::filesystem;

// Socket states in /proc/net.
constexpr unsigned kConnected = 0x01;
constexpr unsigned kUdpBound = 0x07;
constexpr unsigned kTcpListens = 0x0A;

template <typename Test>
std::vector<Process> ProcessesThat(Test test) {
  std::vector<Process> found;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc", error)) {
    const auto process = FindProcess(atoi(entry.path().filename().c_str()));
    if (process.has_value() && test(*process)) found.push_back(*process);
  }
  return found;
}

// The processes with a descriptor that links to `target`, except those that end meanwhile.
std::vector<Process> ProcessesWithLink(const std::string& target) {
  return ProcessesThat([&target](const Process& process) {
    std::error_code error;
    fs::directory_iterator entry("/proc/" + std::to_string(process.pid) + "/fd", error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
      std::error_code gone;
      if (fs::read_symlink(entry->path(), gone) == target) return true;
    }
    return false;
  });
}

struct Socket {
  std::array<char, 33> peer;  // IPv4 or IPv6 address in hexadecimal
  unsigned peer_port;
  unsigned long inode;
};

// The sockets of a protocol, "tcp" or "udp", at a local port in one state.
std::vector<Socket> SocketsAt(const std::string& protocol, int port, unsigned state) {
  std::vector<Socket> sockets;
  for (const char* version : {"", "6"}) {
    std::ifstream table("/proc/net/" + protocol + version);
    for (std::string line; std::getline(table, line);) {
      Socket row = {};
      unsigned row_port = 0;
      unsigned row_state = 0;
      // The heading does not match.
      if (sscanf(line.c_str(), " %*u: %*[^:]:%x %32[^:]:%x %x %*s %*s %*s %*s %*s %lu", &row_port,
                 row.peer.data(), &row.peer_port, &row_state, &row.inode) != 5)
        continue;
      if (static_cast<int>(row_port) == port && row_state == state) sockets.push_back(row);
    }
  }
  return sockets;
}

std::vector<Socket> ServersAt(const std::string& protocol, int port) {
  return SocketsAt(protocol, port, protocol == "tcp" ? kTcpListens : kUdpBound);
}

}  // namespace

std::string ProcessText(pid_t pid) {
  const auto process = FindProcess(pid);
  return Format("%s (%d)", process.has_value() ? process->name.c_str() : "an ended process", pid);
}

std::optional<Process> FindProcess(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
  Process process = {.pid = pid, .name = ""};
  if (!std::getline(file, process.name)) return std::nullopt;
  return process;
}

std::vector<Process> ProcessesNamed(const std::string& name) {
  return ProcessesThat([&name](const Process& process) { return process.name == name; });
}

std::vector<Process> ProcessesWithFile(const std::string& path) {
  std::error_code error;
  return ProcessesWithLink(fs::canonical(path, error));
}

long SecondsSinceStart(pid_t pid) {
  constexpr int kStartTime = 22;  // a field of /proc/PID/stat; fields count from 1
  constexpr int kFirstAfterName = 3;
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(file, text);
  std::istringstream fields(text.substr(text.rfind(')') + 1));
  std::string field;
  for (int number = kFirstAfterName; number <= kStartTime; ++number)
    fields >> field;
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  const long started = atol(field.c_str()) / sysconf(_SC_CLK_TCK);
  return std::max(0L, static_cast<long>(now.tv_sec) - started);
}

bool IsService() {
  // systemd keeps this link between an exit of the daemon and its restart, too; every user may see
  // it.
  std::error_code error;
  return fs::is_symlink("/run/systemd/units/invocation:rs232d.service", error);
}

bool IsPortBound(const std::string& protocol, int port) {
  return !ServersAt(protocol, port).empty();
}

PortHolder HolderOfPort(const std::string& protocol, int port) {
  PortHolder holder;
  for (const Socket& socket : ServersAt(protocol, port)) {
    holder.is_taken = true;
    const auto processes = ProcessesWithLink("socket:[" + std::to_string(socket.inode) + "]");
    if (!processes.empty()) holder.pid = processes.front().pid;
  }
  return holder;
}

std::vector<std::string> ClientsOfPort(int port) {
  constexpr size_t kIpv4Digits = 8;
  std::vector<std::string> clients;
  for (const Socket& socket : SocketsAt("tcp", port, kConnected)) {
    if (strlen(socket.peer.data()) != kIpv4Digits) continue;
    in_addr address = {};
    sscanf(socket.peer.data(), "%x", &address.s_addr);
    std::array<char, INET_ADDRSTRLEN> text = {};
    inet_ntop(AF_INET, &address, text.data(), text.size());
    clients.push_back(Format("%s:%u", text.data(), socket.peer_port));
  }
  return clients;
}

}  // namespace tools
