// The kind of this device, from its parameter block.
#pragma once

#include <cstdint>
#include <string>

namespace tools {

// The modes of the daemon, as bits of a set.
enum DeviceMode : uint8_t {
  MODE_RELAY = 1 << 0,  // a PTZ head
  MODE_SD = 1 << 1,
  MODE_HD = 1 << 2,
  MODE_LENS = 1 << 3,
};
constexpr uint8_t MODES_ALL = MODE_RELAY | MODE_SD | MODE_HD | MODE_LENS;

// "relay", "SD", "HD", "lens".
const char* ModeName(DeviceMode mode);

// Returns the mode that the daemon runs for a model.
DeviceMode ModeOfModel(const std::string& model);

// Returns true if the model has a mode or a table of its own. Any other name is valid, too: it
// selects a common PTZ head.
bool IsKnownModel(const std::string& model);

// Returns the model of this device, or "" if the parameter block cannot be read. Takes no lock: a
// command that stops a motion must not wait for one.
std::string DeviceModel();

}  // namespace tools
