// The mode of an HD camera module.
//
// The module's micom is asked once for what the camera information file tells; camera-control
// commands then become its frames. The firmware-update command updates the micom and reboots the
// device, whatever came of the update. Raw bytes pass between the serial line, PTZ clients and
// local processes as in every mode.
#pragma once

#include <cstdint>

#include "context/rs232_context.h"
#include "ipc/camera_control.h"
#include "module/hd_frame.h"

// Time that the system manager gets between the notice of a reboot and the reboot, seconds.
constexpr int HD_REBOOT_NOTICE_S = 10;

// A setting for the micom.
struct HdSetting {
  HdCommand command;
  uint8_t data;
};

// Stores the setting for a command. Returns false, with `setting` untouched, when nothing is to
// be sent: for a code that the micom does not know, or a parameter that is not given. Free of
// I/O.
bool HdTranslate(const CameraControl& control, HdSetting* setting);

// Runs the mode on `p_param` until the stop flag is set. Returns 0, or -1 at once,
// after a line on standard output, when `p_param` is null. Asks the micom first, which takes up
// to 12 seconds when it is silent. Does not return after a firmware-update command. Main thread
// only.
int camd_cmod_hd(Rs232Context* p_param);
