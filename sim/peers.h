// The processes around the daemon: PTZ clients, local senders and receivers, and the system log.
//
// Each owns one socket: poll Fd(), then call Receive. Receive and WaitFor return on timeout; Send
// waits for buffer space. Errors throw std::runtime_error.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "ipc/camera_control.h"
#include "sim/pty_line.h"
#include "sim/wait.h"
#include "tools/daemon_ports.h"
#include "tools/unique_fd.h"

namespace sim {

// A client of the daemon's PTZ TCP port.
class PtzClient {
 public:
  // Connects to 127.0.0.1:port. `receive_buffer` is the approximate size of the receive buffer; 0:
  // the default. Throws std::runtime_error if the connection is refused.
  explicit PtzClient(int port, int receive_buffer = 0);

  int Fd() const { return fd_.Get(); }
  void Send(std::span<const uint8_t> bytes);
  // Returns `count` bytes, or fewer on timeout or when the daemon closes the connection.
  Bytes Receive(size_t count, milliseconds limit = kPatience);
  // Waits for the daemon to close the connection and discards received bytes.
  bool WaitClosed(milliseconds limit = kPatience);
  void Close() { fd_.Reset(); }

 private:
  tools::UniqueFd fd_;
};

// A UDP socket on 127.0.0.1, bound to `port` (0: any).
class UdpPeer {
 public:
  explicit UdpPeer(int port = 0);

  int Fd() const { return fd_.Get(); }
  int Port() const;
  void SendTo(int port, std::span<const uint8_t> bytes);
  // Returns the next datagram, or nullopt on timeout.
  std::optional<Bytes> Receive(milliseconds limit = kPatience);

 private:
  tools::UniqueFd fd_;
};

// The payload of a serial data datagram; nullopt for any other datagram.
std::optional<Bytes> DecodeSerialData(std::span<const uint8_t> datagram);

using tools::CameraControlPacket;
using tools::CommandPacket;
using tools::DaemonDatagram;

// The record of a camera-control command for this daemon. Only the low 8 bits of each parameter
// count.
constexpr CameraControl Control(uint16_t code, int first = 0, int second = 0, int third = 0) {
  return {.target = CAMERA_CONTROL_TARGET,
          .code = code,
          .first = static_cast<int8_t>(first),
          .second = static_cast<int8_t>(second),
          .third = static_cast<int8_t>(third)};
}

// Receives the syslog messages of the world in place of the system log. Read it regularly: senders
// block after about ten unread messages.
class SyslogRecorder {
 public:
  SyslogRecorder();

  // Waits for a message that contains `text`. Returns the whole message with its priority, or "" on
  // timeout.
  std::string WaitFor(const std::string& text, milliseconds limit = kPatience);
  int Fd() const { return fd_.Get(); }

 private:
  tools::UniqueFd fd_;
};

}  // namespace sim
