// A command of the user's in the world of a virtual device, on the user's terminal; and the way
// into a world that runs.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <optional>
#include <string>
#include <vector>

namespace sim {

struct GuestCommand {
  std::vector<std::string> words;  // program and arguments
  // A shell that does job control: it gets a process group of its own in the foreground.
  bool is_shell = false;
};

// The user's shell.
GuestCommand UserShell();

// Directory of this program.
std::string ProgramDirectory();

// Becomes the command: the directory of this program comes first in its PATH, `model` stands in
// VDEV_MODEL and, for a shell, in the prompt. Paths mean what they mean in the world. When the
// command cannot be run it prints one line and returns the exit status of a shell for it.
int ExecGuest(const GuestCommand& command, const std::string& model);

// Runs the command in the world of `pid` (a vdev that the user started), or in the only one there
// is. Returns the command's exit status; EXIT_FAILURE, after one line on standard error that says
// why, when there is no such world, more than one, or no way in.
int JoinWorld(std::optional<pid_t> pid, const GuestCommand& command);

// Restores the terminal on standard input when it goes out of scope: settings, and the process
// group in the foreground. Does nothing where this process was not in the foreground.
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
