// What a user does with a virtual device: watch and drive it line by line, drive it on a live
// screen, or run a command beside it. Each runs within the device's world and returns the exit
// status of vdev.
#pragma once

#include <optional>
#include <string>

#include "sim/device.h"
#include "sim/world_door.h"

namespace sim {

struct SessionOptions {
  DeviceConfig device;
  std::string daemon;
  std::optional<bool> trace;
  bool plain = false;    // no live screen, on a terminal either
  bool demo = false;     // show the model's script first
  bool once = false;     // end after the script
  bool verbose = false;  // a command: lines go to standard error
};

// The lines of a session with a command go here, unless it is verbose.
constexpr char kSessionLog[] = "/dev/.world/vdev.log";

// Prints plain lines and takes commands from standard input.
int RunPlainSession(const SessionOptions& options);

// Shows the device on the terminal. Runs a plain session where the terminal cannot be drawn on,
// and where it is too small, after one line that says so.
int RunScreenSession(const SessionOptions& options);

// Runs the command once the daemon serves. The exit status is the command's.
int RunCommandSession(const SessionOptions& options, const GuestCommand& command);

}  // namespace sim
