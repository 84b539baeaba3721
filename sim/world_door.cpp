#include "sim/world_door.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "sim/device.h"
#include "sim/unique_fd.h"
#include "sim/world.h"
#include "tools/device_mode.h"

namespace sim {
namespace {

constexpr char kProgramName[] = "vdev";

std::string ProcPath(pid_t pid, const std::string& name) {
  return "/proc/" + std::to_string(pid) + "/" + name;
}

// "net:[4026531840]", or "" where it may not be read.
std::string NamespaceOf(pid_t pid, const char* kind) {
  std::error_code error;
  return std::filesystem::read_symlink(ProcPath(pid, std::string("ns/") + kind), error).string();
}

pid_t ParentOf(pid_t pid) {
  const std::string status = ReadTextFile(ProcPath(pid, "status"));
  const size_t at = status.find("\nPPid:");
  return at == std::string::npos ? 0 : atoi(status.c_str() + at + strlen("\nPPid:"));
}

std::vector<std::string> CommandLineOf(pid_t pid) {
  const std::string text = ReadTextFile(ProcPath(pid, "cmdline"));
  std::vector<std::string> words;
  for (size_t at = 0; at < text.size(); at = text.find('\0', at) + 1)
    words.emplace_back(text.c_str() + at);
  return words;
}

// A door has made a world for its children and stays outside itself.
bool IsDoor(pid_t pid) {
  if (ReadTextFile(ProcPath(pid, "comm")) != std::string(kProgramName) + "\n") return false;
  const std::string inside = NamespaceOf(pid, "pid_for_children");
  return !inside.empty() && inside != NamespaceOf(pid, "pid") &&
         NamespaceOf(pid, "net") != NamespaceOf(getpid(), "net");
}

RunningWorld Describe(pid_t door) {
  RunningWorld world = {.door = door, .parent = ParentOf(door), .command_line = ""};
  const std::vector<std::string> words = CommandLineOf(door);
  for (const std::string& word : words)
    world.command_line.append(world.command_line.empty() ? "" : " ").append(word);
  return world;
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
    if (worlds.empty()) Fail("process " + std::to_string(*pid) + " is no vdev that runs a device");
  }
  if (worlds.empty()) Fail("no virtual device of yours is running; start one: vdev run MODEL");
  if (worlds.size() == 1) return worlds.front();
  std::string choice = "several virtual devices are running, choose one by --pid:";
  for (const RunningWorld& world : worlds)
    choice.append("\n  ").append(std::to_string(world.parent)).append("  " + world.command_line);
  Fail(choice);
}

// Enters the namespaces of a door; children of this process are then in the world.
void Enter(pid_t door) {
  struct Room {
    const char* name;
    int kind;
  };
  // The user namespace comes first: it brings the right to enter the others.
  constexpr std::array<Room, 5> kRooms = {{{"user", CLONE_NEWUSER},
                                           {"ipc", CLONE_NEWIPC},
                                           {"net", CLONE_NEWNET},
                                           {"pid_for_children", CLONE_NEWPID},
                                           {"mnt", CLONE_NEWNS}}};
  std::array<UniqueFd, kRooms.size()> fds;
  for (size_t i = 0; i < kRooms.size(); ++i) {
    if (NamespaceOf(door, kRooms[i].name) == NamespaceOf(getpid(), kRooms[i].name)) continue;
    const std::string path = ProcPath(door, std::string("ns/") + kRooms[i].name);
    fds[i].Reset(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fds[i].IsOpen()) Fail("cannot open " + path + ": " + strerror(errno));
  }
  std::error_code error;
  const std::filesystem::path here = std::filesystem::current_path(error);
  for (size_t i = 0; i < kRooms.size(); ++i) {
    if (fds[i].IsOpen() && setns(fds[i].Get(), kRooms[i].kind) != 0) {
      Fail(std::string("cannot enter the ") + kRooms[i].name + " namespace: " + strerror(errno));
    }
  }
  // Entering a mount namespace leads to its root.
  std::filesystem::current_path(here, error);
}

}  // namespace

std::vector<RunningWorld> FindWorlds() {
  std::vector<RunningWorld> worlds;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const pid_t pid = atoi(entry.path().filename().c_str());
    if (pid > 0 && IsDoor(pid)) worlds.push_back(Describe(pid));
  }
  return worlds;
}

int JoinWorld(std::optional<pid_t> pid, const GuestCommand& command) {
  RunningWorld world;
  try {
    world = ChooseWorld(pid);
    Enter(world.door);
  } catch (const std::exception& error) {
    fprintf(stderr, "vdev: %s\n", error.what());
    return EXIT_FAILURE;
  }
  const int status = RunInChild([&] { return ExecGuest(command, tools::DeviceModel()); });
  constexpr int kKilledStatus = kSignalBase + SIGKILL;
  if (status == kKilledStatus) fprintf(stderr, "vdev: the command was ended with its world\n");
  return status;
}

}  // namespace sim
