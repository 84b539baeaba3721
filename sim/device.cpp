#include "sim/device.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "cmmap/param_block.h"
#include "daemon/settings.h"
#include "lens/position.h"
#include "lens/sensor_config.h"
#include "lens/video_source.h"
#include "serial/serial_port.h"
#include "util/bytes.h"

namespace sim {

std::vector<uint8_t> BuildParamBlock(const DeviceConfig& config) {
  // The data of other processes in the block: anything but zeros.
  constexpr uint8_t kForeign = 0xA5;
  std::vector<uint8_t> block(PARAM_BLOCK_SIZE, kForeign);
  std::copy(config.model.begin(), config.model.end(), block.begin() + PARAM_MODEL_NAME);
  block[PARAM_MODEL_NAME + config.model.size()] = 0;
  const auto set = [&block](ParamBlockOffset offset, int32_t value) {
    StoreLe32(block.data() + offset, static_cast<uint32_t>(value));
  };
  set(PARAM_SERIAL_COUNT, config.serial_count);
  set(PARAM_SERIAL2_BAUD, config.baud_rate);
  set(PARAM_SERIAL2_PARITY, config.parity);
  set(PARAM_SERIAL2_DATA_BITS, config.data_bits);
  set(PARAM_SERIAL2_STOP_BITS, config.stop_bits);
  set(PARAM_PTZ_ENABLE, config.ptz_enable);
  set(PARAM_PTZ_PORT, config.ptz_port);
  return block;
}

void WriteTextFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  if (file.fail()) throw std::runtime_error("cannot write " + path);
}

std::string ReadTextFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void InstallDevice(const DeviceConfig& config) {
  WriteTextFile(UDP_PORT_TABLE_PATH,
                std::string(UDP_PORT_KEY) + "=" + std::to_string(config.udp_port) + "\n");
  WriteTextFile(SERIAL_CAPABILITIES_PATH,
                std::string(SERIAL_DEVICE_KEY) + "=" + config.serial_path + "\n");
  const std::vector<uint8_t> block = BuildParamBlock(config);
  WriteTextFile(PARAM_BLOCK_PATH, std::string(block.begin(), block.end()));
}

std::string PositionsText(int zoom, int focus) {
  return std::string(MFZ_CONF_ZOOM_KEY) + "=" + std::to_string(zoom) + "\n" + MFZ_CONF_FOCUS_KEY +
         "=" + std::to_string(focus) + "\n";
}

void InstallLens(const LensConfig& config) {
  WriteTextFile(MFZ_CONF_PATH, PositionsText(config.zoom, config.focus));
  WriteTextFile(VIDEO_SOURCE_PATH,
                std::string(VIDEO_SOURCE_SENSOR_KEY) + "=" + config.sensor + "\n");
  WriteTextFile(LENS_CAPABILITIES_PATH, ReadTextFile(LENS_CAPABILITIES_PATH) + LENS_MODEL_KEY +
                                            "=2812\n" + LENS_NAME_KEY + "=M12\n");
  std::filesystem::create_directories("/etc/isp");
  std::string sensor = config.sensor;  // in lower case
  std::ranges::transform(sensor, sensor.begin(),
                         [](unsigned char c) { return static_cast<char>(tolower(c)); });
  WriteTextFile(
      "/etc/isp/isp_" + sensor + "_M12_2812.json",
      R"({"All": {"AE": {"Antiflicker": {"Enable": {"VALUE": )" + config.antiflicker + "}}}}}");
}

}  // namespace sim
