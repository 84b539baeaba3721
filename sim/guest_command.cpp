#include "sim/guest_command.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace sim {
namespace {

// Takes the terminal's foreground, which is not stopped for asking from the background.
void TakeForeground(pid_t group) {
  signal(SIGTTOU, SIG_IGN);
  tcsetpgrp(STDIN_FILENO, group);
  signal(SIGTTOU, SIG_DFL);
}

// The same directory by its path: a working directory from before the world leads out of it.
void EnterWorkingDirectory() {
  std::error_code error;
  const std::filesystem::path here = std::filesystem::current_path(error);
  if (!error) std::filesystem::current_path(here, error);
}

void SetEnvironment(const GuestCommand& command, const std::string& model) {
  const char* path = getenv("PATH");
  const std::string rest = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin";
  setenv("PATH", (ProgramDirectory() + ":" + rest).c_str(), 1);
  setenv("VDEV_MODEL", model.c_str(), 1);
  if (!command.is_shell) return;
  // Prompts of Debian's and Ubuntu's shells begin with the first; plain shells take the second.
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
  EnterWorkingDirectory();
  if (command.is_shell && isatty(STDIN_FILENO) != 0) {
    setpgid(0, 0);
    TakeForeground(getpid());
  }
  std::vector<std::string> words = command.words;
  std::vector<char*> argv;
  std::transform(words.begin(), words.end(), std::back_inserter(argv),
                 [](std::string& word) { return word.data(); });
  argv.push_back(nullptr);
  execvp(argv[0], argv.data());
  const int error = errno;
  fprintf(stderr, "vdev: cannot run %s: %s\n", argv[0], strerror(error));
  return error == ENOENT ? kNotFoundStatus : kNotRunStatus;
}

TerminalKeeper::TerminalKeeper() {
  State state = {};
  if (tcgetattr(STDIN_FILENO, &state.settings) != 0) return;
  state.group = tcgetpgrp(STDIN_FILENO);
  if (state.group == getpgrp()) saved_ = state;
}

TerminalKeeper::~TerminalKeeper() {
  if (!saved_.has_value()) return;
  TakeForeground(saved_->group);
  tcsetattr(STDIN_FILENO, TCSADRAIN, &saved_->settings);
}

}  // namespace sim
