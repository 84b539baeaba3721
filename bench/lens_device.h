// The daemon in the lens mode with a simulated lens around it, within a private world.
#pragma once

#include <memory>
#include <string>

#include "sim/daemon_process.h"
#include "sim/lens_rig.h"
#include "sim/peers.h"
#include "sim/pty_line.h"

namespace bench {

class LensDevice {
 public:
  // Starts the daemon and waits until its loop takes commands. Throws std::runtime_error.
  LensDevice(const sim::LensPose& pose, uint32_t seed, const std::string& sensor = "AR0230",
             const std::string& antiflicker = "false");

  sim::LensRig& Rig() { return *rig_; }
  sim::DaemonProcess& Daemon() { return *daemon_; }

  void Control(uint16_t code, int first = 0, int third = 0);
  // Waits until the daemon has printed `text` behind the first `after` characters.
  void WaitOutput(const std::string& text, size_t after = 0);
  // Where the lens really stands.
  sim::LensPose Pose();

 private:
  sim::DeviceConfig config_;
  sim::SyslogRecorder syslog_;
  sim::PtyLine line_;
  sim::UdpPeer sender_;
  std::unique_ptr<sim::LensRig> rig_;
  std::unique_ptr<sim::DaemonProcess> daemon_;
};

}  // namespace bench
