// Runs a user's command in the world of a virtual device, on the user's terminal, and joins a
// running world.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <optional>
#include <string>
#include <vector>

namespace sim {

struct GuestCommand {
  std::vector<std::string> words;  // program and arguments
  // A shell with job control: runs in a foreground process group of its own.
  bool is_shell = false;
};

// The user's shell.
GuestCommand UserShell();

// Directory of the running program.
std::string ProgramDirectory();

// Replaces this process with the command. Puts the program directory first in PATH and `model` in
// VDEV_MODEL and, for a shell, in the prompt. Paths refer to the world. On failure, prints one line
// and returns the status that a shell would.
int ExecGuest(const GuestCommand& command, const std::string& model);

// Runs the command in the world of `pid` (a vdev of the same user), or in the only running one.
// Returns the exit status of the command; on failure (no such world, more than one, no permission),
// prints one line on standard error and returns EXIT_FAILURE.
int JoinWorld(std::optional<pid_t> pid, const GuestCommand& command);

// Restores the settings and the foreground process group of the terminal on standard input when it
// goes out of scope. Does nothing if this process was not in the foreground.
class TerminalKeeper {
 public:
  TerminalKeeper();
  TerminalKeeper(const TerminalKeeper&) = delete;
  TerminalKeeper& operator=(const TerminalKeeper&) = delete;
  ~TerminalKeeper();

 private:
  pid_t group_ = -1;  // -1: nothing to restore
  termios settings_ = {};
};

}  // namespace sim
