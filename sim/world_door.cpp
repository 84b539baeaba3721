#include "sim/world_door.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "sim/device.h"
#include "sim/world.h"
#include "tools/device_mode.h"
#include "tools/unique_fd.h"

namespace sim {
namespace {

// Exit statuses of a command that could not be started, as in a shell.
constexpr int kNotFoundStatus = 127;
constexpr int kNotRunStatus = 126;

// --- Running worlds ----------------------------------------------------------------------------

struct RunningWorld {
  pid_t first;   // its first process, as seen from outside
  pid_t door;    // its parent, outside the world
  pid_t parent;  // the vdev started by the user
};

std::string ProcPath(pid_t pid, const std::string& name) {
  return "/proc/" + std::to_string(pid) + "/" + name;
}

// E.g. "net:[4026531840]", or "" if not permitted.
std::string NamespaceOf(const std::string& process, const std::string& kind) {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/" + process + "/ns/" + kind, error).string();
}

// The value of a line of /proc/PID/status.
std::string StatusOf(pid_t pid, const std::string& name) {
  const std::string status = "\n" + ReadTextFile(ProcPath(pid, "status"));
  const size_t at = status.find("\n" + name + ":\t");
  if (at == std::string::npos) return "";
  const size_t begin = at + name.size() + 3;
  return status.substr(begin, status.find('\n', begin) - begin);
}

pid_t ParentOf(pid_t pid) {
  return atoi(StatusOf(pid, "PPid").c_str());
}

// True for a vdev that is process 1 of another PID and network namespace.
bool IsFirstProcess(pid_t pid) {
  if (StatusOf(pid, "Name") != "vdev" || !StatusOf(pid, "NSpid").ends_with("\t1")) return false;
  const std::string net = NamespaceOf(std::to_string(pid), "net");
  return !net.empty() && net != NamespaceOf("self", "net");
}

std::vector<RunningWorld> FindWorlds() {
  std::vector<RunningWorld> worlds;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const pid_t pid = atoi(entry.path().filename().c_str());
    if (pid <= 0 || !IsFirstProcess(pid)) continue;
    const pid_t door = ParentOf(pid);
    worlds.push_back({.first = pid, .door = door, .parent = ParentOf(door)});
  }
  return worlds;
}

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error(what);
}

RunningWorld ChooseWorld(std::optional<pid_t> pid) {
  std::vector<RunningWorld> worlds = FindWorlds();
  if (pid.has_value()) {
    std::erase_if(worlds, [&](const RunningWorld& world) {
      return world.door != *pid && world.parent != *pid;
    });
    if (worlds.empty())
      Fail("process " + std::to_string(*pid) + " is not a vdev with a running device");
  }
  if (worlds.empty()) Fail("you have no running virtual device; start one with vdev run MODEL");
  if (worlds.size() == 1) return worlds.front();
  std::string choice = "several virtual devices are running; choose one with --pid:";
  for (const RunningWorld& world : worlds) {
    std::string command = ReadTextFile(ProcPath(world.parent, "cmdline"));
    std::ranges::replace(command, '\0', ' ');
    choice += "\n  " + std::to_string(world.parent) + "  " + command;
  }
  Fail(choice);
}

// Enters the namespaces of a process, so that later children run in its world.
void Enter(pid_t pid) {
  int kinds = CLONE_NEWIPC | CLONE_NEWNET | CLONE_NEWPID | CLONE_NEWNS;
  const bool is_own_user = NamespaceOf(std::to_string(pid), "user") == NamespaceOf("self", "user");
  if (!is_own_user) kinds |= CLONE_NEWUSER;
  std::error_code error;
  const std::filesystem::path here = std::filesystem::current_path(error);
  const tools::UniqueFd process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (setns(process.Get(), kinds) != 0) {
    Fail("cannot enter the world of process " + std::to_string(pid) + ": " + strerror(errno));
  }
  // setns changes the working directory to the root.
  std::filesystem::current_path(here, error);
}

// --- A command ---------------------------------------------------------------------------------

// Makes a process group the terminal's foreground group. Ignores SIGTTOU, which would stop a caller
// in the background.
void TakeForeground(pid_t group) {
  signal(SIGTTOU, SIG_IGN);
  tcsetpgrp(STDIN_FILENO, group);
  signal(SIGTTOU, SIG_DFL);
}

void SetEnvironment(const GuestCommand& command, const std::string& model) {
  const char* path = getenv("PATH");
  const std::string rest = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin";
  setenv("PATH", (ProgramDirectory() + ":" + rest).c_str(), 1);
  setenv("VDEV_MODEL", model.c_str(), 1);
  if (!command.is_shell) return;
  // Default prompts on Debian and Ubuntu include the first; plain shells use the second.
  setenv("debian_chroot", ("vdev " + model).c_str(), 1);
  setenv("PS1", ("(vdev " + model + ") $ ").c_str(), 1);
}

}  // namespace

GuestCommand UserShell() {
  const char* shell = getenv("SHELL");
  return {.words = {shell != nullptr && *shell != '\0' ? shell : "/bin/sh"}, .is_shell = true};
}

std::string ProgramDirectory() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

int ExecGuest(const GuestCommand& command, const std::string& model) {
  SetEnvironment(command, model);
  // Re-enter the working directory by path: one opened before the world was made leads out of it.
  std::error_code ignored;
  const std::filesystem::path here = std::filesystem::current_path(ignored);
  if (!ignored) std::filesystem::current_path(here, ignored);
  if (command.is_shell && isatty(STDIN_FILENO) != 0) {
    setpgid(0, 0);
    TakeForeground(getpid());
  }
  std::vector<std::string> words = command.words;
  std::vector<char*> argv;
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  execvp(argv[0], argv.data());
  const int error = errno;
  fprintf(stderr, "vdev: cannot run %s: %s\n", argv[0], strerror(error));
  return error == ENOENT ? kNotFoundStatus : kNotRunStatus;
}

int JoinWorld(std::optional<pid_t> pid, const GuestCommand& command) {
  try {
    Enter(ChooseWorld(pid).first);
  } catch (const std::exception& error) {
    fprintf(stderr, "vdev: %s\n", error.what());
    return EXIT_FAILURE;
  }
  const int status = RunInChild([&] { return ExecGuest(command, tools::DeviceModel()); });
  constexpr int kKilledStatus = kSignalBase + SIGKILL;
  if (status == kKilledStatus) fprintf(stderr, "vdev: the command was killed with its world\n");
  return status;
}

TerminalKeeper::TerminalKeeper() {
  if (tcgetattr(STDIN_FILENO, &settings_) == 0 && tcgetpgrp(STDIN_FILENO) == getpgrp()) {
    group_ = getpgrp();
  }
}

TerminalKeeper::~TerminalKeeper() {
  if (group_ < 0) return;
  TakeForeground(group_);
  tcsetattr(STDIN_FILENO, TCSADRAIN, &settings_);
}

}  // namespace sim
