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

// First parameter of CAMERA_CODE_AF_MODE for daemon mode; any other is micom mode.
constexpr int8_t LENS_AF_MODE_DAEMON = 3;

// Returns 0 at the stop flag (some seconds later when the P-iris worker is in the pauses of a
// request), or -1 at once when `p_param` is null. The firmware-update command ends in the device's
// reboot.
int camd_a5s(Rs232Context* p_param);
