#include "sim/daemon_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "ipc/cicomm.h"
#include "sim/virtual_time.h"
#include "sim/world.h"

namespace sim {
namespace {

std::string NewOutputPath(const char* kind) {
  static int count = 0;
  return std::string(kWorldDirectory) + "/daemon." + std::to_string(count++) + "." + kind;
}

// A process and all its descendants.
std::vector<pid_t> Family(pid_t pid) {
  std::vector<pid_t> family = {pid};
  for (size_t i = 0; i < family.size(); ++i) {
    const std::string id = std::to_string(family[i]);
    std::ifstream children(std::filesystem::path("/proc") / id / "task" / id / "children");
    for (pid_t child = 0; children >> child;)
      family.push_back(child);
  }
  return family;
}

// Sum of the numbers after `key` in the lines of a file.
double SumOf(const std::string& key, const std::string& path) {
  double sum = 0;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.rfind(key, 0) == 0) sum += strtod(line.c_str() + key.size(), nullptr);
  }
  return sum;
}

// Spawn attributes and file actions of the daemon: its own process group, no blocked signals.
class SpawnPlan {
 public:
  SpawnPlan() {
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
  }
  ~SpawnPlan() {
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;

  void SendTo(int stream, const std::string& path) {
    posix_spawn_file_actions_addopen(&files, stream, path.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
  }
  void SendTo(int stream, int fd) { posix_spawn_file_actions_adddup2(&files, fd, stream); }

  posix_spawn_file_actions_t files;
  posix_spawnattr_t attributes;
};

std::vector<char*> Pointers(std::vector<std::string>* strings) {
  std::vector<char*> pointers;
  for (std::string& string : *strings)
    pointers.push_back(string.data());
  pointers.push_back(nullptr);
  return pointers;
}

// The complete environment of a new process. The clock comes last in LD_PRELOAD, so that another
// preloaded library intercepts the calls of the daemon, not those of the clock.
std::vector<std::string> EnvironmentOf(const LaunchOptions& options) {
  std::vector<std::string> variables = options.variables;
  std::string preload = options.preload;
  if (IsTimeVirtual()) {
    preload += (preload.empty() ? "" : ":") + std::string(kClockLibrary);
    variables.push_back(std::string(VTIME_FILE) + "=" + kClockFile);
  }
  if (!preload.empty()) variables.push_back("LD_PRELOAD=" + preload);
  for (char** variable = environ; *variable != nullptr; ++variable)
    variables.emplace_back(*variable);
  return variables;
}

}  // namespace

// Uses posix_spawn, since a fork of a process with threads may inherit held locks.
DaemonProcess::DaemonProcess(std::string program, std::vector<std::string> arguments,
                             const LaunchOptions& options)
    : output_path_(NewOutputPath("out")), error_path_(NewOutputPath("err")) {
  SpawnPlan plan;
  if (options.output_fd >= 0) {
    plan.SendTo(STDOUT_FILENO, options.output_fd);
    plan.SendTo(STDERR_FILENO, options.output_fd);
  } else {
    plan.SendTo(STDOUT_FILENO, output_path_);
    plan.SendTo(STDERR_FILENO, error_path_);
  }
  arguments.insert(arguments.begin(), program);
  std::vector<std::string> environment = EnvironmentOf(options);
  const VtimeControl* clock = IsTimeVirtual() ? VirtualTime() : nullptr;
  if (clock != nullptr) clock->begin_spawn();
  const int error = posix_spawn(&pid_, program.c_str(), &plan.files, &plan.attributes,
                                Pointers(&arguments).data(), Pointers(&environment).data());
  if (clock != nullptr) clock->end_spawn(error == 0 ? pid_ : -1);
  if (error != 0) throw std::runtime_error("cannot start " + program + ": " + strerror(error));
}

DaemonProcess::~DaemonProcess() {
  if (!status_.has_value()) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  unlink(output_path_.c_str());
  unlink(error_path_.c_str());
}

bool DaemonProcess::WaitServing(const DeviceConfig& config, milliseconds limit) {
  // Start-up creates the PTZ server last.
  const bool ptz = config.ptz_enable == 1 && config.ptz_port > 0 && config.ptz_port <= INT16_MAX;
  return WaitUntil(
             [&] {
               if (WaitEnd(milliseconds(0)).has_value()) return true;
               return IsPortBound("udp", RS232_COMMAND_PORT) &&
                      (!ptz || IsPortBound("tcp", config.ptz_port));
             },
             limit) &&
         !status_.has_value();
}

void DaemonProcess::Signal(int signal) const {
  // Once the process is reaped, its pid may belong to another process.
  if (!status_.has_value()) kill(pid_, signal);
}

std::optional<int> DaemonProcess::WaitEnd(milliseconds limit) {
  WaitUntil(
      [this] {
        int status = 0;
        if (!status_.has_value() && waitpid(pid_, &status, WNOHANG) == pid_) {
          status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        }
        return status_.has_value();
      },
      limit);
  return status_;
}

std::optional<int> DaemonProcess::Stop(milliseconds limit) {
  Signal(SIGTERM);
  return WaitEnd(limit);
}

std::string DaemonProcess::Output() const {
  return ReadTextFile(output_path_);
}

std::string DaemonProcess::Errors() const {
  return ReadTextFile(error_path_);
}

double CpuSeconds(pid_t pid) {
  std::chrono::duration<double> used{};
  for (const pid_t member : Family(pid)) {
    clockid_t clock = 0;
    timespec time = {};
    if (clock_getcpuclockid(member, &clock) != 0 || clock_gettime(clock, &time) != 0) continue;
    used += std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  }
  return used.count();
}

double WakeUps(pid_t pid) {
  double sleeps = 0;
  std::error_code ended;
  for (const pid_t member : Family(pid)) {
    for (const auto& thread :
         std::filesystem::directory_iterator("/proc/" + std::to_string(member) + "/task", ended))
      sleeps += SumOf("voluntary_ctxt_switches:", thread.path() / "status");
  }
  return sleeps;
}

Memory MemoryOf(pid_t pid) {
  Memory memory;
  for (const pid_t member : Family(pid)) {
    const std::string path = "/proc/" + std::to_string(member) + "/smaps_rollup";
    memory.resident_kib += SumOf("Rss:", path);
    memory.anonymous_kib += SumOf("Anonymous:", path);
  }
  return memory;
}

}  // namespace sim
