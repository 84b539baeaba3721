#include "tools/processes.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

namespace tools {

namespace {

namespace fs = std::filesystem;

constexpr int kHexadecimal = 16;
// Socket states in /proc/net.
constexpr int kConnected = 0x01;
constexpr int kUdpBound = 0x07;
constexpr int kTcpListens = 0x0A;

template <typename Test>
std::vector<Process> ProcessesThat(Test test) {
  std::vector<Process> found;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc", error)) {
    const std::string number = entry.path().filename();
    if (number.find_first_not_of("0123456789") != std::string::npos) continue;
    const auto process = FindProcess(std::stoi(number));
    if (process.has_value() && test(*process)) found.push_back(*process);
  }
  return found;
}

// `target` is the link text of a descriptor. The process may end in the meantime.
bool HasOpen(const Process& process, const std::string& target) {
  std::error_code error;
  fs::directory_iterator entry("/proc/" + std::to_string(process.pid) + "/fd", error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    std::error_code gone;
    if (fs::read_symlink(entry->path(), gone) == target) return true;
  }
  return false;
}

struct SocketRow {
  int port;
  std::string peer;  // address and port in hexadecimal
  int state;
  std::string inode;
};

std::vector<SocketRow> SocketsOf(const std::string& protocol) {
  std::vector<SocketRow> rows;
  for (const char* version : {"", "6"}) {
    std::ifstream table("/proc/net/" + protocol + version);
    std::string line;
    std::getline(table, line);  // header line
    while (std::getline(table, line)) {
      std::istringstream words(line);
      std::string skipped;
      std::string local;
      std::string state;
      SocketRow row = {};
      words >> skipped >> local >> row.peer >> state;
      for (int column = 0; column < 5; ++column)
        words >> skipped;
      if (!(words >> row.inode)) continue;
      row.port = std::stoi(local.substr(local.find(':') + 1), nullptr, kHexadecimal);
      row.state = std::stoi(state, nullptr, kHexadecimal);
      rows.push_back(row);
    }
  }
  return rows;
}

// Converts "0100007F:C350" to "127.0.0.1:50000".
std::string PeerText(const std::string& peer) {
  const size_t colon = peer.find(':');
  in_addr address = {};
  address.s_addr = static_cast<in_addr_t>(std::stoul(peer.substr(0, colon), nullptr, kHexadecimal));
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address, text, sizeof(text));
  const int port = std::stoi(peer.substr(colon + 1), nullptr, kHexadecimal);
  return std::string(text) + ":" + std::to_string(port);
}

}  // namespace

std::string ProcessText(pid_t pid) {
  const auto process = FindProcess(pid);
  return (process.has_value() ? process->name : "a process that has ended") + " (" +
         std::to_string(pid) + ")";
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
  const std::string target = fs::canonical(path, error);
  return ProcessesThat([&target](const Process& process) { return HasOpen(process, target); });
}

long SecondsSinceStart(pid_t pid) {
  constexpr int kStartTime = 22;  // in proc(5), where columns count from 1
  constexpr int kFirstBehindName = 3;
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(file, text);
  std::istringstream columns(text.substr(std::min(text.rfind(')') + 1, text.size())));
  std::string column;
  for (int number = kFirstBehindName; number <= kStartTime; ++number)
    columns >> column;
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  const long started = atol(column.c_str()) / sysconf(_SC_CLK_TCK);
  return std::max(0L, static_cast<long>(now.tv_sec) - started);
}

bool IsService() {
  // systemd keeps this link while the service is enabled or active, also between an exit of the
  // daemon and its next start. Every user may read it.
  std::error_code error;
  return fs::is_symlink("/run/systemd/units/invocation:rs232d.service", error);
}

PortHolder HolderOfPort(const char* protocol, int port) {
  PortHolder holder;
  const int wanted = std::string_view(protocol) == "tcp" ? kTcpListens : kUdpBound;
  for (const SocketRow& row : SocketsOf(protocol)) {
    if (row.port != port || row.state != wanted) continue;
    holder.is_taken = true;
    const std::string target = "socket:[" + row.inode + "]";
    const auto processes =
        ProcessesThat([&](const Process& process) { return HasOpen(process, target); });
    if (!processes.empty()) holder.pid = processes.front().pid;
  }
  return holder;
}

std::vector<std::string> ClientsOfPort(int port) {
  constexpr size_t kIpv4Digits = 8;
  std::vector<std::string> clients;
  for (const SocketRow& row : SocketsOf("tcp")) {
    const bool is_client = row.port == port && row.state == kConnected;
    if (is_client && row.peer.find(':') == kIpv4Digits) clients.push_back(PeerText(row.peer));
  }
  return clients;
}

}  // namespace tools
