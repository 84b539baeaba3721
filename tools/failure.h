// How a command of the tool fails, and the exit statuses that a script can tell apart.
#pragma once

#include <stdexcept>
#include <string>

namespace tools {

enum ExitStatus : int {
  EXIT_STATUS_DONE = 0,
  EXIT_STATUS_FAILED = 1,     // it was tried and did not work: a file, a socket, a check
  EXIT_STATUS_USAGE = 2,      // the command line is wrong; nothing was tried
  EXIT_STATUS_NO_DAEMON = 3,  // nobody listens at the daemon's port
  EXIT_STATUS_DECLINED = 4,   // the user said no, or could not be asked
  EXIT_STATUS_SIGNAL = 128,   // plus N: signal N cut a timed motion short, which was stopped
};

// Ends a command with one line, "rs232ctl: TEXT", on standard error.
struct Failure : std::runtime_error {
  Failure(ExitStatus exit_status, const std::string& text)
      : std::runtime_error(text), status(exit_status) {}
  ExitStatus status;
};

}  // namespace tools
