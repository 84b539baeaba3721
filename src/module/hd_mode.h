// The mode of an HD camera module.
//
// At its start the mode queries the module's micom once for the camera information file; then it
// translates camera-control commands into micom frames. The firmware-update command updates the
// micom and reboots the device, even if the update failed. Raw bytes pass between the serial line,
// PTZ clients and local processes as in every mode.
#pragma once

#include <cstdint>

#include "context/rs232_context.h"
#include "ipc/camera_control.h"
#include "module/hd_frame.h"

// Time between the reboot notice to the system manager and the reboot, seconds.
constexpr int HD_REBOOT_NOTICE_S = 10;

// A setting for the micom.
struct HdSetting {
  HdCommand command;
  uint8_t data;
};

// Stores the setting for a command. Returns false and leaves `setting` unchanged if there is
// nothing to send: an unknown code, or a missing parameter. No I/O.
bool HdTranslate(const CameraControl& control, HdSetting* setting);

// Runs the mode on `p_param` until the stop flag is set. Returns 0, or -1 after a line on standard
// output if `p_param` is null. First queries the micom, which takes up to 12 seconds if it does not
// answer. Does not return after a firmware-update command. Main thread only.
int camd_cmod_hd(Rs232Context* p_param);
