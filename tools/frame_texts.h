// Describes the frames of each protocol in words. A frame must be complete; its checksum is not
// checked. Does no I/O and keeps no state.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>

#include "ipc/camera_control.h"
#include "relay/pelco_d.h"
#include "tools/frame_words.h"

namespace tools {

// "0x" and `digits` hexadecimal digits.
std::string HexNumber(unsigned value, int digits = 2);

// "+5", "-5".
std::string Signed(int value);

// "1 byte", "2 bytes".
std::string Count(size_t count, const char* what);

// Returns the row of a table whose `key` is `value`, or null.
template <typename Rows, typename Value, typename Key>
auto FindRow(const Rows& rows, Value value, Key key) -> const typename Rows::value_type* {
  const auto row = std::ranges::find(rows, value, key);
  return row != rows.end() ? &*row : nullptr;
}

// Pelco-D for any receiver, e.g. "pan left at speed 29, tilt up at 3", "set preset 95", "stop".
std::string PelcoWords(const PelcoFrame& frame);

// The same, with the receiver if it is not the usual one, and with a mark if the command is
// extended.
std::string PelcoText(std::span<const uint8_t> frame, Direction direction);
// The 4-byte answer of a head.
std::string HeadAnswerText(std::span<const uint8_t> frame, Direction direction);
// The query for the model of an SD module, or the reply.
std::string SdText(std::span<const uint8_t> frame, Direction direction);
std::string HdText(std::span<const uint8_t> frame, Direction direction);
std::string LensText(std::span<const uint8_t> frame, Direction direction);

// A firmware packet (recognised by its length), the micom's ready byte, or the answer to a packet.
std::string FirmwarePacketText(std::span<const uint8_t> frame, Direction direction);
std::string FirmwareReadyText(std::span<const uint8_t> frame, Direction direction);
std::string FirmwareAnswerText(uint8_t answer);

// A camera-control record, e.g. "camera control 0x1021: preset go 5".
std::string CameraControlText(const CameraControl& control);

// The command and the payload of a command-channel packet.
std::string CommandText(int32_t command, std::span<const uint8_t> payload);

}  // namespace tools
