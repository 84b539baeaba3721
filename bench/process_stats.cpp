#include "bench/process_stats.h"

#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <vector>

#include "sim/device.h"

namespace bench {
namespace {

constexpr double kNsPerS = 1e9;

std::string ProcessPath(pid_t pid) {
  return "/proc/" + std::to_string(pid);
}

// A process and all that descend from it.
std::vector<pid_t> Family(pid_t pid) {
  std::vector<pid_t> family = {pid};
  for (size_t i = 0; i < family.size(); ++i) {
    const std::string id = std::to_string(family[i]);
    std::istringstream children(
        sim::ReadTextFile(ProcessPath(family[i]).append("/task/").append(id).append("/children")));
    pid_t child = 0;
    while (children >> child)
      family.push_back(child);
  }
  return family;
}

// Sum of the numbers that follow `key` in the text of a file.
double Sum(const std::string& text, const std::string& key) {
  double sum = 0;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.compare(0, key.size(), key) == 0) sum += strtod(line.c_str() + key.size(), nullptr);
  }
  return sum;
}

double SecondsOn(clockid_t clock) {
  timespec time = {};
  if (clock_gettime(clock, &time) != 0) return 0;
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / kNsPerS;
}

struct TcpEntry {
  unsigned local_port;
  unsigned remote_port;
  unsigned state;
  unsigned long queued;
};

constexpr unsigned kEstablished = 0x01;
constexpr unsigned kCloseWait = 0x08;
constexpr unsigned kListen = 0x0A;

// Calls `visit` with every TCP socket until it returns true.
bool AnyTcpSocket(const std::function<bool(const TcpEntry&)>& visit) {
  for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    std::ifstream file(table);
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line)) {
      TcpEntry entry = {};
      const int fields =
          sscanf(line.c_str(), " %*d: %*[0-9A-F]:%4x %*[0-9A-F]:%4x %2x %8lx:", &entry.local_port,
                 &entry.remote_port, &entry.state, &entry.queued);
      constexpr int kFields = 4;
      if (fields == kFields && visit(entry)) return true;
    }
  }
  return false;
}

}  // namespace

double CpuSeconds(pid_t pid) {
  double seconds = 0;
  for (const pid_t member : Family(pid)) {
    clockid_t clock = 0;
    if (clock_getcpuclockid(member, &clock) == 0) seconds += SecondsOn(clock);
  }
  return seconds;
}

double ThreadCpuSeconds(pid_t pid, pid_t thread) {
  const std::string path =
      ProcessPath(pid).append("/task/").append(std::to_string(thread)).append("/schedstat");
  return strtod(sim::ReadTextFile(path).c_str(), nullptr) / kNsPerS;
}

double WakeUps(pid_t pid) {
  double switches = 0;
  std::error_code ended;
  for (const pid_t member : Family(pid)) {
    for (const auto& thread :
         std::filesystem::directory_iterator(ProcessPath(member) + "/task", ended)) {
      switches += Sum(sim::ReadTextFile(thread.path() / "status"), "voluntary_ctxt_switches:");
    }
  }
  return switches;
}

Memory MemoryOf(pid_t pid) {
  Memory memory;
  for (const pid_t member : Family(pid)) {
    const std::string text = sim::ReadTextFile(ProcessPath(member) + "/smaps_rollup");
    memory.rss_kib += Sum(text, "Rss:");
    memory.anonymous_kib += Sum(text, "Anonymous:");
  }
  return memory;
}

ServerEnd LookUpServerEnd(int port, int client_port) {
  ServerEnd end;
  AnyTcpSocket([&](const TcpEntry& entry) {
    const bool is_it = entry.local_port == static_cast<unsigned>(port) &&
                       entry.remote_port == static_cast<unsigned>(client_port);
    if (!is_it) return false;
    end.is_open = entry.state == kEstablished || entry.state == kCloseWait;
    end.unsent_bytes = static_cast<long>(entry.queued);
    return true;
  });
  return end;
}

bool IsListening(int port) {
  return AnyTcpSocket([port](const TcpEntry& entry) {
    return entry.state == kListen && entry.local_port == static_cast<unsigned>(port);
  });
}

}  // namespace bench
