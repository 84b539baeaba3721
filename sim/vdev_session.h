// The sessions of a virtual device: plain lines, a live screen, or a command beside the device.
// Each runs inside the device's world and returns the exit status of vdev.
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
  bool plain = false;    // no live screen, even on a terminal
  bool demo = false;     // run the model's demo script first
  bool once = false;     // exit after the script
  bool verbose = false;  // with a command: print lines to standard error
};

// Output of a command session that is not verbose.
constexpr char kSessionLog[] = "/dev/.world/vdev.log";

// Prints plain lines and reads commands from standard input.
int RunPlainSession(const SessionOptions& options);

// Shows the device on the terminal. If the terminal is unsuitable or too small, prints a line to
// that effect and runs a plain session.
int RunScreenSession(const SessionOptions& options);

// Runs the command once the daemon serves. Returns the exit status of the command.
int RunCommandSession(const SessionOptions& options, const GuestCommand& command);

}  // namespace sim
