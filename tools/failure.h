// Failure of a command, and the exit statuses of the tool.
#pragma once

#include <stdexcept>
#include <string>

namespace tools {

enum ExitStatus : int {
  EXIT_STATUS_DONE = 0,
  EXIT_STATUS_FAILED = 1,     // a file, a socket or a check failed
  EXIT_STATUS_USAGE = 2,      // the command line is wrong; nothing was done
  EXIT_STATUS_NO_DAEMON = 3,  // no process has bound the daemon's port
  EXIT_STATUS_DECLINED = 4,   // the user declined, or there is no terminal to ask
  EXIT_STATUS_SIGNAL = 128,   // plus N: signal N ended a timed motion
};

// Ends a command with the line "rs232ctl: TEXT" on standard error.
struct Failure : std::runtime_error {
  Failure(ExitStatus exit_status, const std::string& text)
      : std::runtime_error(text), status(exit_status) {}
  explicit Failure(const std::string& text) : Failure(EXIT_STATUS_FAILED, text) {}
  ExitStatus status;
};

}  // namespace tools
