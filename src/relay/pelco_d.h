// Pelco-D: the 7-byte frames of pan/tilt/zoom heads.
//
// Builds frames and defines their bits and commands. No I/O.
#pragma once

#include <array>
#include <cstdint>

// Byte positions of a frame.
enum PelcoOffset : int {
  PELCO_SYNC_AT = 0,
  PELCO_ADDRESS_AT = 1,
  PELCO_COMMAND1_AT = 2,
  PELCO_COMMAND2_AT = 3,
  PELCO_DATA1_AT = 4,  // pan speed
  PELCO_DATA2_AT = 5,  // tilt speed, or the argument of an extended command
  PELCO_CHECKSUM_AT = 6,
  PELCO_FRAME_SIZE = 7,
};

constexpr uint8_t PELCO_SYNC = 0xFF;
constexpr uint8_t PELCO_ADDRESS = 0x01;  // receiver number of the head
constexpr uint8_t PELCO_SPEED_MAX = 63;  // top speed in data 1 and data 2
constexpr uint8_t PELCO_NO_BITS = 0x00;

// Motion bits of command 1 and command 2. No bit set means stop.
enum PelcoMotion : uint8_t {
  PELCO1_FOCUS_NEAR = 0x01,  // the only motion bit in command 1
  PELCO2_PAN_RIGHT = 0x02,
  PELCO2_PAN_LEFT = 0x04,
  PELCO2_TILT_UP = 0x08,
  PELCO2_TILT_DOWN = 0x10,
  PELCO2_ZOOM_TELE = 0x20,
  PELCO2_ZOOM_WIDE = 0x40,
  PELCO2_FOCUS_FAR = 0x80,
};

// Extended commands: command 2 with bit 0 set, argument in data 2.
enum PelcoExtended : uint8_t {
  PELCO_SET_PRESET = 0x03,
  PELCO_CLEAR_PRESET = 0x05,
  PELCO_GO_TO_PRESET = 0x07,
  PELCO_SET_AUXILIARY = 0x09,
  PELCO_CLEAR_AUXILIARY = 0x0B,
  PELCO_REMOTE_RESET = 0x0F,
  PELCO_SET_PATTERN = 0x1F,
  PELCO_RUN_PATTERN = 0x23,
  PELCO_ZOOM_SPEED = 0x25,
  PELCO_FOCUS_SPEED = 0x27,
  PELCO_AUTO_IRIS = 0x2D,
  PELCO_BACKLIGHT = 0x31,
  PELCO_WHITE_BALANCE = 0x33,
};
constexpr uint8_t PELCO_EXTENDED_BIT = 0x01;

using PelcoFrame = std::array<uint8_t, PELCO_FRAME_SIZE>;

// The four variable bytes of a frame. All zero is the stop frame.
struct PelcoCommand {
  uint8_t command1;
  uint8_t command2;
  uint8_t data1;
  uint8_t data2;
};

// Returns the sum of the bytes between sync and checksum, modulo 256.
uint8_t PelcoChecksum(const PelcoFrame& frame);

// Returns the frame of a command for receiver PELCO_ADDRESS, with its checksum.
PelcoFrame PelcoBuild(const PelcoCommand& command);
