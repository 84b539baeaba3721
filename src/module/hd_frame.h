// The 10-byte frame between the daemon and the microcontroller (micom) of an HD camera module.
//
// Builds frames and defines their bytes, commands and values. The micom answers a query with a
// frame of the same length and the value at HD_DATA_AT. No I/O.
#pragma once

#include <array>
#include <cstdint>

// Byte positions of a frame. All other bytes are 0.
enum HdOffset : int {
  HD_SYNC_AT = 0,
  HD_COMMAND_AT = 1,
  HD_ACCESS_AT = 2,
  HD_DATA_AT = 6,
  HD_CHECKSUM_AT = 9,
  HD_FRAME_SIZE = 10,
};

constexpr uint8_t HD_SYNC = 0xFF;

// Type of a request.
enum HdAccess : uint8_t {
  HD_QUERY = 1,
  HD_SETTING = 2,
};

enum HdCommand : uint8_t {
  // Queries; their data byte is 0.
  HD_VERSION = 0xE3,          // firmware version: major in the high, minor in the low nibble
  HD_RESOLUTION_FLAG = 0x5C,  // 0 or not 0
  HD_SENSOR = 0xE0,           // sensor code
  // Settings.
  HD_PARAMETER = 0x21,        // the parameter of CAMERA_CODE_MODULE_SETTING
  HD_LENS = 0x41,             // an HdLens
  HD_MENU_KEY = 0x4B,         // an HdKey
  HD_FIRMWARE_UPDATE = 0xFD,  // data 0: enter the update mode
};

// Data of HD_MENU_KEY.
enum HdKey : uint8_t {
  HD_KEY_MENU = 0,
  HD_KEY_UP = 1,
  HD_KEY_DOWN = 2,
  HD_KEY_LEFT = 3,
  HD_KEY_RIGHT = 4,
};

// Data of HD_LENS.
enum HdLens : uint8_t {
  HD_LENS_STOP = 0,
  HD_LENS_TELE = 1,
  HD_LENS_WIDE = 2,
  HD_LENS_FOCUS_SEARCH = 3,
  HD_LENS_FOCUS_MINUS = 0x14,
  HD_LENS_FOCUS_PLUS = 0x18,
};

// Data of every query, and of a setting without a value.
constexpr uint8_t HD_NO_DATA = 0;
// An unknown value, or a missing parameter. A micom's answer with this value counts as unknown.
constexpr uint8_t HD_NO_VALUE = 0xFF;

using HdFrame = std::array<uint8_t, HD_FRAME_SIZE>;

// Returns the sum of the bytes before the checksum, sync byte included, modulo 256.
uint8_t HdChecksum(const HdFrame& frame);

// Returns a complete frame with its checksum.
HdFrame HdBuild(HdCommand command, HdAccess access, uint8_t data);
