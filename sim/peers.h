// The processes around the daemon: PTZ clients, local senders and receivers, the system log.
//
// Each owns one socket: poll Fd(), then Receive. Receive and WaitFor give up after a limit; Send
// waits for room. What cannot be opened or sent throws std::runtime_error.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "ipc/camera_control.h"
#include "sim/pty_line.h"
#include "sim/wait.h"
#include "tools/unique_fd.h"

namespace sim {

// A client of the daemon's PTZ TCP port.
class PtzClient {
 public:
  // Connects to 127.0.0.1:port, with a receive buffer of about `receive_buffer` bytes when that
  // is not 0. Throws std::runtime_error when refused.
  explicit PtzClient(int port, int receive_buffer = 0);

  int Fd() const { return fd_.Get(); }
  void Send(std::span<const uint8_t> bytes);
  // Exactly `count` bytes, or fewer when `limit` passes or the daemon closes first.
  Bytes Receive(size_t count, milliseconds limit = kPatience);
  // Waits for the daemon to close the connection; bytes on the way are dropped.
  bool WaitClosed(milliseconds limit = kPatience);
  void Close() { fd_.Reset(); }

 private:
  tools::UniqueFd fd_;
};

// A local UDP socket on 127.0.0.1, bound to `port` (0: any).
class UdpPeer {
 public:
  explicit UdpPeer(int port = 0);

  int Fd() const { return fd_.Get(); }
  int Port() const;
  void SendTo(int port, std::span<const uint8_t> bytes);
  // The next datagram, or nothing when none comes within `limit`.
  std::optional<Bytes> Receive(milliseconds limit = kPatience);

 private:
  tools::UniqueFd fd_;
};

// What a serial data datagram carried; nothing when it is not one.
std::optional<Bytes> DecodeSerialData(std::span<const uint8_t> datagram);

// A datagram for the daemon's UDP port: the code, then the bytes.
Bytes DaemonDatagram(uint16_t code, std::span<const uint8_t> bytes = {});

// A command-channel packet as a process without a port of its own sends it.
Bytes CommandPacket(int32_t command, std::span<const uint8_t> payload);

// The record of a camera-control command for this daemon; of each parameter its low 8 bits count.
constexpr CameraControl Control(uint16_t code, int first = 0, int second = 0, int third = 0) {
  return {.target = CAMERA_CONTROL_TARGET,
          .code = code,
          .first = static_cast<int8_t>(first),
          .second = static_cast<int8_t>(second),
          .third = static_cast<int8_t>(third)};
}

// The packet of a camera-control command.
Bytes CameraControlPacket(const CameraControl& control);

// Receives what processes of the world write to syslog, in place of the system's own log. Who does
// not read it lets senders block after some ten messages.
class SyslogRecorder {
 public:
  SyslogRecorder();

  // Waits for a message that contains `text`. Returns it whole, priority included, or "".
  std::string WaitFor(const std::string& text, milliseconds limit = kPatience);
  int Fd() const { return fd_.Get(); }

 private:
  tools::UniqueFd fd_;
};

}  // namespace sim
