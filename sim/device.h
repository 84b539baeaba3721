// The files that the daemon reads from a device: settings files and the parameter block.
//
// Call these functions inside a private world (world.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

// Settings of a device. The defaults are those of the virtual device.
struct DeviceConfig {
  std::string model = "QB-100";
  std::string serial_path = "/dev/ttyS1";
  int32_t udp_port = 10020;
  int32_t serial_count = 2;
  int32_t baud_rate = 9600;
  int32_t parity = 0;
  int32_t data_bits = 8;
  int32_t stop_bits = 1;
  int32_t ptz_enable = 1;
  int32_t ptz_port = 4001;
};

// Writes the port table, the capabilities file and the parameter block. Throws std::runtime_error
// if a file cannot be written.
void InstallDevice(const DeviceConfig& config);

// Additional settings of a device with a motorized lens.
struct LensConfig {
  int zoom = 0;  // stored positions
  int focus = 200;
  std::string sensor = "AR0230";
  std::string antiflicker = "false";  // a JSON value
};

// Writes the positions file, the sensor and lens names, and the sensor's tuning file. Call it after
// InstallDevice. Throws std::runtime_error if a file cannot be written.
void InstallLens(const LensConfig& config);

// The text of a positions file.
std::string PositionsText(int zoom, int focus);

// The parameter block of a device.
std::vector<uint8_t> BuildParamBlock(const DeviceConfig& config);

// Replace the contents of a file; read a whole file ("" if it cannot be opened).
void WriteTextFile(const std::string& path, const std::string& text);
std::string ReadTextFile(const std::string& path);

}  // namespace sim
