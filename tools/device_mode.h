// What kind of device this is, as its parameter block says.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tools {

// A device as seen from a command: its mode, and in the relay mode the table of its model.
enum DeviceMode : uint8_t {
  MODE_RELAY = 1 << 0,  // every model without a mode or table of its own
  MODE_QB610 = 1 << 1,
  MODE_QB620 = 1 << 2,
  MODE_SD = 1 << 3,
  MODE_HD = 1 << 4,
  MODE_LENS = 1 << 5,
};
constexpr uint8_t MODES_RELAYED = MODE_RELAY | MODE_QB610 | MODE_QB620;

// The mode that the daemon runs for a model.
DeviceMode ModeOfModel(const std::string& model);

// Names of the modes of a set, one each: "relay", "QB-610", "QB-620", "SD", "HD", "lens".
std::vector<std::string> ModeNames(uint8_t modes);

// The set in words, e.g. "relay (QB-620)" or "relay (not QB-610), HD".
std::string ModesText(uint8_t modes);

// The model of this device; "" when the parameter block cannot be read. Takes no lock: a command
// that stops a motion must not wait for one.
std::string DeviceModel();

}  // namespace tools
