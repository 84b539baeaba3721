// A command of the user's that runs in the world of a virtual device, on the user's terminal.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <optional>
#include <string>
#include <vector>

namespace sim {

// Exit statuses of a command that could not be started, as a shell has them.
constexpr int kNotFoundStatus = 127;
constexpr int kNotRunStatus = 126;

struct GuestCommand {
  std::vector<std::string> words;  // program and arguments
  // A shell that shall do job control: it gets a process group of its own in the foreground.
  bool is_shell = false;
};

// The user's shell.
GuestCommand UserShell();

// Directory of this program.
std::string ProgramDirectory();

// Becomes the command: the directory of this program comes first in its PATH, `model` stands in
// VDEV_MODEL and, for a shell, in the prompt. Paths mean what they mean in the world. Returns the
// exit status that says why when the command cannot be run, after one line on standard error.
int ExecGuest(const GuestCommand& command, const std::string& model);

// Gives the terminal on standard input back as it was when it goes out of scope: settings, and
// the process group in the foreground. Does nothing where this process was not in the foreground.
class TerminalKeeper {
 public:
  TerminalKeeper();
  TerminalKeeper(const TerminalKeeper&) = delete;
  TerminalKeeper& operator=(const TerminalKeeper&) = delete;
  ~TerminalKeeper();

 private:
  struct State {
    pid_t group;
    termios settings;
  };
  std::optional<State> saved_;
};

}  // namespace sim
