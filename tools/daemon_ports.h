// Sends datagrams to the two UDP ports of the daemon, as every process of the device does.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "ipc/camera_control.h"

namespace tools {

// A datagram for the daemon's own UDP port: the code, then the bytes.
std::vector<uint8_t> DaemonDatagram(uint16_t code, std::span<const uint8_t> bytes = {});

// A packet for the daemon's command channel, from a sender without a channel of its own.
std::vector<uint8_t> CommandPacket(int32_t command, std::span<const uint8_t> payload);
std::vector<uint8_t> CameraControlPacket(const CameraControl& control);

// Returns the daemon's own UDP port, from the device's port table. Throws Failure if it has none.
int DaemonUdpPort();

// Sends a datagram to the daemon's own UDP port. Throws Failure with EXIT_STATUS_NO_DAEMON if no
// process listens there, or with EXIT_STATUS_FAILED if the datagram cannot be sent.
void SendToDaemon(uint16_t code, std::span<const uint8_t> bytes = {});

// Sends a command without payload to the daemon's command channel. Throws like SendToDaemon.
void SendCommand(int32_t command);

// Sends a camera-control command. Throws like SendToDaemon.
void SendControl(const CameraControl& control);

}  // namespace tools
