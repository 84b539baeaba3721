#include "tools/device_mode.h"

#include <algorithm>
#include <array>
#include <fstream>

#include "cmmap/param_block.h"
#include "context/rs232_context.h"
#include "daemon/model_family.h"

namespace tools {

namespace {

struct ModeRow {
  DeviceMode mode;
  const char* name;
};

constexpr std::array<ModeRow, 6> kModes = {{
    {MODE_RELAY, "relay"},
    {MODE_QB610, "QB-610"},
    {MODE_QB620, "QB-620"},
    {MODE_SD, "SD"},
    {MODE_HD, "HD"},
    {MODE_LENS, "lens"},
}};

// Which relayed models a set holds.
struct RelayRow {
  uint8_t modes;
  const char* text;
};

constexpr std::array<RelayRow, 7> kRelayTexts = {{
    {MODES_RELAYED, "relay"},
    {MODE_RELAY | MODE_QB620, "relay (not QB-610)"},
    {MODE_RELAY | MODE_QB610, "relay (not QB-620)"},
    {MODE_QB610 | MODE_QB620, "relay (QB-610, QB-620)"},
    {MODE_RELAY, "relay (not QB-610, QB-620)"},
    {MODE_QB610, "relay (QB-610)"},
    {MODE_QB620, "relay (QB-620)"},
}};

}  // namespace

DeviceMode ModeOfModel(const std::string& model) {
  if (IsSdModuleModel(model.c_str()) != 0) return MODE_SD;
  if (IsHdModuleModel(model.c_str()) != 0) return MODE_HD;
  if (IsMotorizedLensModel(model.c_str()) != 0) return MODE_LENS;
  if (model == "QB-610") return MODE_QB610;
  return model == "QB-620" ? MODE_QB620 : MODE_RELAY;
}

std::vector<std::string> ModeNames(uint8_t modes) {
  std::vector<std::string> names;
  for (const ModeRow& row : kModes) {
    if ((modes & row.mode) != 0) names.emplace_back(row.name);
  }
  return names;
}

std::string ModesText(uint8_t modes) {
  std::string text;
  for (const RelayRow& row : kRelayTexts) {
    if ((modes & MODES_RELAYED) == row.modes) text = row.text;
  }
  for (const std::string& name : ModeNames(modes & static_cast<uint8_t>(~MODES_RELAYED)))
    text += (text.empty() ? "" : ", ") + name;
  return text;
}

std::string DeviceModel() {
  std::array<char, RS232_MODEL_NAME_SIZE - 1> name = {};
  std::ifstream file(PARAM_BLOCK_PATH, std::ios::binary);
  file.read(name.data(), name.size());
  return {name.begin(), std::find(name.begin(), name.end(), '\0')};
}

}  // namespace tools
