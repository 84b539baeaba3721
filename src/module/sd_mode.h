// The mode of an SD camera module.
//
// The module takes Pelco-D frames: camera-control commands become menu keys and zoom, and every
// reply of the module renews the camera information file. Raw bytes pass between the serial
// line, PTZ clients and local processes as in every mode.
#pragma once

#include <array>
#include <cstdint>

#include "context/rs232_context.h"
#include "ipc/camera_control.h"

// Data of the frame that asks the module for a reply (command 2 is 0).
constexpr uint8_t SD_QUERY_DATA1 = 0x96;
constexpr uint8_t SD_QUERY_DATA2 = 0x69;
// The preset whose setting opens the module's menu.
constexpr uint8_t SD_MENU_PRESET = 95;

// The bytes of an SD frame that vary; data 1 is 0. All zero: the stop frame.
struct SdFrame {
  uint8_t command2;
  uint8_t data2;
};

// The frames of one command, sent one right after the other.
struct SdSequence {
  std::array<SdFrame, 2> frames;
  int count;
};

// The frames for a command; none for a code that the module does not know. Free of I/O.
SdSequence SdTranslate(const CameraControl& control);

// Runs the mode on `p_param` until the stop flag is set. Returns 0, or -1 at once,
// after a line on standard output, when `p_param` is null. Main thread only.
int camd_cmod_sd(Rs232Context* p_param);
