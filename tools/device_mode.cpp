#include "tools/device_mode.h"

#include <algorithm>
#include <array>
#include <bit>
#include <fstream>

#include "cmmap/param_block.h"
#include "context/rs232_context.h"
#include "daemon/model_family.h"
#include "relay/ptz_tables.h"

namespace tools {

const char* ModeName(DeviceMode mode) {
  constexpr const char* kNames[] = {"relay", "SD", "HD", "lens"};
  return kNames[static_cast<size_t>(std::countr_zero(static_cast<uint8_t>(mode)))];
}

DeviceMode ModeOfModel(const std::string& model) {
  if (IsSdModuleModel(model.c_str()) != 0) return MODE_SD;
  if (IsHdModuleModel(model.c_str()) != 0) return MODE_HD;
  return IsMotorizedLensModel(model.c_str()) != 0 ? MODE_LENS : MODE_RELAY;
}

bool IsKnownModel(const std::string& model) {
  constexpr char kPlainHead[] = "QB-100";
  return ModeOfModel(model) != MODE_RELAY || IsQb710Model(model.c_str()) != 0 ||
         model == kPlainHead ||
         std::ranges::find(PtzModels(), model, &PtzModel::name) != PtzModels().end();
}

std::string DeviceModel() {
  std::array<char, RS232_MODEL_NAME_SIZE - 1> name = {};
  std::ifstream file(PARAM_BLOCK_PATH, std::ios::binary);
  file.read(name.data(), name.size());
  return {name.begin(), std::find(name.begin(), name.end(), '\0')};
}

}  // namespace tools
