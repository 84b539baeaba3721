// Talking to the daemon as any process of the device does: by datagrams to its two ports.
#pragma once

#include <cstdint>
#include <span>

#include "ipc/camera_control.h"

namespace tools {

// The daemon's own UDP port, from the device's port table. Throws Failure when there is none.
int DaemonUdpPort();

// Sends `code` and `bytes` to the daemon's UDP port. Throws Failure: nobody listens there
// (EXIT_STATUS_NO_DAEMON), or the datagram could not be sent.
void SendToDaemon(uint16_t code, std::span<const uint8_t> bytes = {});

// Sends a command with its payload to the daemon's command channel. Throws as SendToDaemon does.
void SendCommand(int command, std::span<const uint8_t> payload = {});

// Sends a camera-control command.
void SendControl(const CameraControl& control);

}  // namespace tools
