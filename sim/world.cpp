#include "sim/world.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tools/unique_fd.h"

namespace sim {
namespace {

constexpr int kNamespaces = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWPID;

// The failed step with its reason and remedy.
struct WorldError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

[[noreturn]] void Fail(const std::string& what) {
  throw WorldError(what + ": " + strerror(errno));
}

void Check(bool done, const std::string& what) {
  if (!done) Fail(what);
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  file.close();
  Check(!file.fail(), "cannot write " + path);
}

void MakeDirectory(const std::string& path, mode_t mode = 0755) {
  Check(mkdir(path.c_str(), mode) == 0 || errno == EEXIST, "cannot make " + path);
}

void Mount(const std::string& source, const std::string& target, const char* type,
           unsigned long flags, const std::string& options = "") {
  Check(mount(source.c_str(), target.c_str(), type, flags, options.c_str()) == 0,
        "cannot mount " + std::string(type == nullptr ? "a bind" : type) + " on " + target);
}

// --- Namespaces --------------------------------------------------------------------------------

// Becomes root of a user namespace that contains only the caller's user.
void MapCallerToRoot(uid_t user, gid_t group) {
  WriteFile("/proc/self/setgroups", "deny");
  WriteFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
  WriteFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

// Returns true if a user namespace was needed.
bool EnterNamespaces() {
  if (geteuid() == 0 && unshare(kNamespaces) == 0) return false;
  const uid_t user = geteuid();
  const gid_t group = getegid();
  Check(unshare(kNamespaces | CLONE_NEWUSER) == 0,
        "cannot make namespaces (run as root, or allow unprivileged user namespaces: sysctl "
        "kernel.unprivileged_userns_clone=1, on Ubuntu also "
        "kernel.apparmor_restrict_unprivileged_userns=0)");
  MapCallerToRoot(user, group);
  return true;
}

void BringLoopbackUp() {
  const tools::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request = {};
  strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  Check(ioctl(fd.Get(), SIOCSIFFLAGS, &request) == 0, "cannot bring loopback up");
}

// --- Files -------------------------------------------------------------------------------------

// Mounts a new /dev with the usual devices, private ptys, and the directory of the bench's files.
void MakeDev() {
  struct Node {
    std::string name;
    tools::UniqueFd fd;
  };
  std::vector<Node> nodes;
  for (const char* name : {"null", "zero", "full", "random", "urandom", "tty"}) {
    const std::string path = std::string("/dev/") + name;
    tools::UniqueFd fd(open(path.c_str(), O_PATH | O_CLOEXEC));
    if (fd.IsOpen()) nodes.push_back({name, std::move(fd)});
  }
  Mount("tmpfs", "/dev", "tmpfs", MS_NOSUID, "mode=755");
  for (const Node& node : nodes) {
    const std::string path = "/dev/" + node.name;
    WriteFile(path, "");
    Mount("/proc/self/fd/" + std::to_string(node.fd.Get()), path, nullptr, MS_BIND);
  }
  MakeDirectory("/dev/shm", 01777);
  MakeDirectory("/dev/pts");
  Mount("devpts", "/dev/pts", "devpts", MS_NOSUID | MS_NOEXEC,
        "newinstance,ptmxmode=0666,mode=0620");
  constexpr std::pair<const char*, const char*> kLinks[] = {{"pts/ptmx", "/dev/ptmx"},
                                                            {"/proc/self/fd", "/dev/fd"},
                                                            {"fd/0", "/dev/stdin"},
                                                            {"fd/1", "/dev/stdout"},
                                                            {"fd/2", "/dev/stderr"}};
  for (const auto& [target, path] : kLinks)
    Check(symlink(target, path) == 0, std::string("cannot link ") + path);
  MakeDirectory(kWorldDirectory);
}

// A writable layer for an overlay on a directory.
struct Layer {
  std::string path;  // the directory
  std::string upper;
  std::string work;
};

// Makes a layer for `path` with the directories `made`, which belong to the world's root whoever
// owns them below.
Layer MakeLayer(const std::string& path, const std::vector<std::string>& made) {
  const std::string base = std::string(kWorldDirectory) + path;
  Layer layer = {.path = path, .upper = base + "/upper", .work = base + "/work"};
  for (const std::string& directory : {base, layer.upper, layer.work})
    MakeDirectory(directory);
  for (const std::string& directory : made)
    MakeDirectory(layer.upper + "/" + directory);
  return layer;
}

void LayOver(const Layer& layer, bool user_namespace) {
  Mount("overlay", layer.path, "overlay", 0,
        "lowerdir=" + layer.path + ",upperdir=" + layer.upper + ",workdir=" + layer.work +
            (user_namespace ? ",userxattr" : ""));
}

// Installs a program that only logs its calls.
void InstallRecorder(const Layer& layer, const std::string& program) {
  const std::string path = layer.upper + "/" + program;
  WriteFile(path, std::string("#!/bin/sh\nread up idle < /proc/uptime\n") +
                      "echo \"$up ${0##*/} $*\" >> " + kProgramLog + "\n");
  Check(chmod(path.c_str(), 0755) == 0, "cannot make " + path + " executable");
}

void MakeFiles(bool user_namespace) {
  Check(mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "cannot make mounts private");
  MakeDev();
  LayOver(MakeLayer("/etc", {}), user_namespace);
  LayOver(MakeLayer("/tmp", {}), user_namespace);
  LayOver(MakeLayer("/var", {"nvt"}), user_namespace);
  const Layer usr = MakeLayer("/usr", {"bin", "sbin"});
  for (const char* program : {"bin/micom_reset", "bin/umount", "sbin/reboot"}) {
    InstallRecorder(usr, program);
  }
  LayOver(usr, user_namespace);
  Mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
}

// --- Processes ---------------------------------------------------------------------------------

// True if another process sent the signal. Signals of a terminal reach the body directly.
bool IsSent(const siginfo_t& info) {
  return info.si_code == SI_USER || info.si_code == SI_QUEUE || info.si_code == SI_TKILL;
}

int StatusOf(int wait_status) {
  return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : kSignalBase + WTERMSIG(wait_status);
}

// Reaps children and forwards signals to `child` until it exits. Returns its exit status.
int AwaitChild(pid_t child) {
  const sigset_t signals = HandledSignals();
  while (true) {
    siginfo_t info;
    if (sigwaitinfo(&signals, &info) < 0) continue;
    if (info.si_signo != SIGCHLD) {
      if (IsSent(info)) kill(child, info.si_signo);
      continue;
    }
    int status = 0;
    pid_t ended = 0;
    while ((ended = waitpid(-1, &status, WNOHANG)) > 0) {
      if (ended == child) return StatusOf(status);
    }
  }
}

pid_t Fork() {
  // An inherited SIG_IGN would suppress the signal for the end of a child.
  signal(SIGCHLD, SIG_DFL);
  fflush(nullptr);
  const pid_t child = fork();
  Check(child >= 0, "cannot fork");
  return child;
}

// Runs as the first process of the world: sets up its files, runs the body in a child, and reaps.
int RunFirstProcess(const std::function<int()>& body, bool user_namespace,
                    const sigset_t& caller_signals) {
  MakeFiles(user_namespace);
  BringLoopbackUp();
  const pid_t child = Fork();
  if (child != 0) return AwaitChild(child);
  sigprocmask(SIG_SETMASK, &caller_signals, nullptr);
  exit(body());
}

// Runs `step` in a child process that dies with this one. Returns its exit status.
int RunGuarded(const std::function<int()>& step) {
  const pid_t child = Fork();
  if (child != 0) return AwaitChild(child);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    _exit(step());
  } catch (const WorldError& error) {
    fprintf(stderr, "private world: %s\n", error.what());
    _exit(kNoWorldStatus);
  }
}

// Runs `step` in a guarded child while the handled signals are blocked.
int RunWithBlockedSignals(const std::function<int(const sigset_t&)>& step) {
  const sigset_t signals = HandledSignals();
  sigset_t caller_signals;
  sigprocmask(SIG_BLOCK, &signals, &caller_signals);
  const int status = RunGuarded([&] { return step(caller_signals); });
  sigprocmask(SIG_SETMASK, &caller_signals, nullptr);
  return status;
}

}  // namespace

sigset_t HandledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP})
    sigaddset(&set, signal);
  return set;
}

int RunInWorld(const std::function<int()>& body) {
  // A child enters the new namespaces, so the caller keeps its own.
  return RunWithBlockedSignals([&](const sigset_t& caller_signals) {
    const bool user_namespace = EnterNamespaces();
    return RunGuarded([&] { return RunFirstProcess(body, user_namespace, caller_signals); });
  });
}

int RunInChild(const std::function<int()>& body) {
  return RunWithBlockedSignals([&](const sigset_t& caller_signals) {
    sigprocmask(SIG_SETMASK, &caller_signals, nullptr);
    return body();
  });
}

}  // namespace sim
