// The device around the daemon: its files, the serial line and its far end, the processes that talk
// to the daemon, and the daemon itself. vdev, the system tests, the fault injection and the service
// test use it.
//
// A rig belongs to one thread. While that thread waits (wait.h), it serves the far end and the
// camera daemon, which have no threads.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ipc/cicomm.h"
#include "sim/camera_daemon.h"
#include "sim/daemon_process.h"
#include "sim/device.h"
#include "sim/far_end.h"
#include "sim/peers.h"
#include "sim/pty_line.h"
#include "sim/wait.h"

namespace sim {

class DeviceRig : public Pump {
 public:
  // Opens the line and becomes the pump of this process until destroyed.
  explicit DeviceRig(DeviceConfig device = {});
  ~DeviceRig() override;

  // Writes the files of the device and the additional files of its model.
  void Install() const;

  // Connects a far end to the line, replaces any earlier one, and discards unread bytes. `measured`
  // is the lens that the camera daemon observes; null: no camera daemon.
  void Attach(std::unique_ptr<FarEnd> end, const LensMicom* measured = nullptr, uint32_t seed = 1);
  // Attaches the far end of the device's model and its camera daemon, if any.
  void AttachModel();

  // Calls `handler` whenever `fd` is readable or has hung up; -1: never.
  void Watch(int fd, std::function<void()> handler);
  void Unwatch(int fd);

  // Starts the daemon; kills an earlier one first.
  void Launch(const std::string& program, std::vector<std::string> arguments = {},
              const LaunchOptions& options = {});
  bool WaitServing() { return daemon->WaitServing(config); }
  bool HasEnded() { return daemon->WaitEnd(milliseconds(0)).has_value(); }

  void SendCommand(std::span<const uint8_t> packet) { sender.SendTo(RS232_COMMAND_PORT, packet); }
  void Control(uint16_t code, int first = 0, int second = 0, int third = 0) {
    SendCommand(CameraControlPacket(sim::Control(code, first, second, third)));
  }
  void SendUdp(std::span<const uint8_t> datagram) { sender.SendTo(config.udp_port, datagram); }

  bool Serve(Clock::time_point end, int fd = -1, short events = 0) override;

  DeviceConfig config;
  PtyLine line;
  UdpPeer sender;
  std::unique_ptr<FarEnd> far_end;       // null: the caller serves the line
  std::unique_ptr<CameraDaemon> camera;  // null: none
  std::unique_ptr<DaemonProcess> daemon;
  // Interval between ticks of an idle far end, and so the largest delay of its answers.
  milliseconds tick_every{2};

 private:
  struct Watcher {
    int fd;
    std::function<void()> handler;
  };

  void ServeFarEnd();
  void ServeReady(std::span<const pollfd> sources);

  std::vector<Watcher> watchers_;
};

}  // namespace sim
