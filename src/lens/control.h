// The motorized-lens mode: brings the lens into a known state, then serves commands, the micom
// and the clients in the common pass, with the motor work of the drive and the focus search in
// between.
//
// Who drives the lens changes with the AF mode: the daemon itself (daemon mode), or the micom
// from its jog registers (micom mode). Motor moves are sleeps on the loop's thread: nothing else
// is served while the lens moves. The P-iris has a worker thread of its own.
#pragma once

#include <cstdint>

#include "context/rs232_context.h"

// Control codes of the lens mode beside CAMERA_CODE_FOCUS (value: first parameter) and
// CAMERA_CODE_ZOOM (value: third parameter). "v" is the first parameter.
enum LensControlCode : uint16_t {
  LENS_CODE_IRIS = 0x100A,      // one P-iris step: v negative closes, positive opens
  LENS_CODE_START_AF = 0x1202,  // focus search
  LENS_CODE_IRIS_ALT = 0x2003,  // as LENS_CODE_IRIS
  LENS_CODE_ASSIST = 0x8012,    // the 'F' button
  LENS_CODE_AF_MODE = 0x8100,   // v LENS_AF_MODE_DAEMON: daemon mode, any other: micom mode
};
constexpr int8_t LENS_AF_MODE_DAEMON = 3;

// Returns 0 at the stop flag, or -1 at once when `p_param` is null. Works on a copy of
// `p_param`. The firmware-update command ends in the device's reboot.
int camd_a5s(Rs232Context* p_param);
