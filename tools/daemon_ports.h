// Sends datagrams to the two ports of the daemon, as other processes of the device do.
#pragma once

#include <cstdint>
#include <span>

#include "ipc/camera_control.h"

namespace tools {

// Returns the daemon's own UDP port from the device's port table. Throws Failure if it has none.
int DaemonUdpPort();

// Sends `code` and `bytes` to the daemon's UDP port. Throws Failure if no process has bound the
// port (EXIT_STATUS_NO_DAEMON) or if sending fails.
void SendToDaemon(uint16_t code, std::span<const uint8_t> bytes = {});

// Sends a command with its payload to the daemon's command channel. Throws like SendToDaemon.
void SendCommand(int command, std::span<const uint8_t> payload = {});

// Sends a camera-control command.
void SendControl(const CameraControl& control);

}  // namespace tools
