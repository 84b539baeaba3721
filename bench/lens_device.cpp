#include "bench/lens_device.h"

#include <stdexcept>

#include "ipc/camera_control.h"
#include "ipc/cicomm.h"

namespace bench {
namespace {

constexpr sim::milliseconds kOutputLimit{20000};

}  // namespace

LensDevice::LensDevice(const sim::LensPose& pose, uint32_t seed, const std::string& sensor,
                       const std::string& antiflicker) {
  config_.model = "QB-420";
  sim::InstallDevice(config_);
  sim::InstallLens(
      {.zoom = pose.zoom, .focus = pose.focus, .sensor = sensor, .antiflicker = antiflicker});
  rig_ = std::make_unique<sim::LensRig>(&line_, pose, seed);
  daemon_ = std::make_unique<sim::DaemonProcess>(RS232D_PATH, std::vector<std::string>{});
  if (!daemon_->WaitServing(config_)) throw std::runtime_error("the daemon does not come up");
  // The loop takes its first command once the start-up is over.
  Control(CAMERA_CODE_IRIS_STEP, -1);
  WaitOutput("(close)\n");
}

void LensDevice::Control(uint16_t code, int first, int third) {
  sender_.SendTo(RS232_COMMAND_PORT, sim::CameraControlPacket(sim::Control(code, first, 0, third)));
}

void LensDevice::WaitOutput(const std::string& text, size_t after) {
  const bool is_there = sim::WaitUntil(
      [&] { return daemon_->Output().find(text, after) != std::string::npos; }, kOutputLimit);
  if (!is_there) throw std::runtime_error("the daemon does not get on");
}

sim::LensPose LensDevice::Pose() {
  return rig_->With(
      [](const sim::LensMicom& micom, const sim::CameraDaemon&) { return micom.Pose(); });
}

}  // namespace bench
