// What kind of device this is, as its parameter block says.
#pragma once

#include <cstdint>
#include <string>

namespace tools {

// The modes of the daemon; a set of them is their sum.
enum DeviceMode : uint8_t {
  MODE_RELAY = 1 << 0,  // a PTZ head
  MODE_SD = 1 << 1,
  MODE_HD = 1 << 2,
  MODE_LENS = 1 << 3,
};
constexpr uint8_t MODES_ALL = MODE_RELAY | MODE_SD | MODE_HD | MODE_LENS;

// "relay", "SD", "HD", "lens".
const char* ModeName(DeviceMode mode);

// The mode that the daemon runs for a model.
DeviceMode ModeOfModel(const std::string& model);

// Whether a model is one that is known here, which any name of a PTZ head need not be.
bool IsKnownModel(const std::string& model);

// The model of this device; "" when the parameter block cannot be read. Takes no lock: a command
// that stops a motion must not wait for one.
std::string DeviceModel();

}  // namespace tools
