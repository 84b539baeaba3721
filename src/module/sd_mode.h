// The mode of an SD camera module.
//
// The module accepts Pelco-D frames. The mode translates camera-control commands into menu keys and
// zoom, and rewrites the camera information file after every reply of the module. Raw bytes pass
// between the serial line, PTZ clients and local processes as in every mode.
#pragma once

#include <array>
#include <cstdint>

#include "context/rs232_context.h"
#include "ipc/camera_control.h"

// Data of the frame that requests a reply from the module (command 2 is 0).
constexpr uint8_t SD_QUERY_DATA1 = 0x96;
constexpr uint8_t SD_QUERY_DATA2 = 0x69;
// Setting this preset opens the module's menu.
constexpr uint8_t SD_MENU_PRESET = 95;

// The variable bytes of an SD frame; data 1 is 0. All zero is the stop frame.
struct SdFrame {
  uint8_t command2;
  uint8_t data2;
};

// The frames of one command, sent back to back.
struct SdSequence {
  std::array<SdFrame, 2> frames;
  int count;
};

// Returns the frames for a command; none for an unknown code. No I/O.
SdSequence SdTranslate(const CameraControl& control);

// Runs the mode on `p_param` until the stop flag is set. Returns 0, or -1 after a line on standard
// output if `p_param` is null. Main thread only.
int camd_cmod_sd(Rs232Context* p_param);
