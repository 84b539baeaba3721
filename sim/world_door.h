// Finding the worlds that run, and entering one from outside.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "sim/guest_command.h"

namespace sim {

struct RunningWorld {
  pid_t door;    // a process that stands between the machine and the world
  pid_t parent;  // the vdev that the user started
  std::string command_line;
};

// The worlds of virtual devices that the user may enter.
std::vector<RunningWorld> FindWorlds();

// Runs the command in the world of `pid` (a process that the user started), or in the only one
// there is. Returns the command's exit status; EXIT_FAILURE, after one line on standard error
// that says why, when there is no such world, more than one, or no way in.
int JoinWorld(std::optional<pid_t> pid, const GuestCommand& command);

}  // namespace sim
