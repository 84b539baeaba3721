#include "tools/device_mode.h"

#include <algorithm>
#include <array>
#include <fstream>

#include "cmmap/param_block.h"
#include "context/rs232_context.h"
#include "daemon/model_family.h"

namespace tools {

DeviceMode ModeOfModel(const std::string& model) {
  if (IsSdModuleModel(model.c_str()) != 0) return MODE_SD;
  if (IsHdModuleModel(model.c_str()) != 0) return MODE_HD;
  return IsMotorizedLensModel(model.c_str()) != 0 ? MODE_LENS : MODE_RELAY;
}

std::string DeviceModel() {
  std::array<char, RS232_MODEL_NAME_SIZE - 1> name = {};
  std::ifstream file(PARAM_BLOCK_PATH, std::ios::binary);
  file.read(name.data(), name.size());
  return {name.begin(), std::find(name.begin(), name.end(), '\0')};
}

}  // namespace tools
