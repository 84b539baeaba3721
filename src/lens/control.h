// The motorized-lens mode: initialises the lens, then serves commands, the micom and the PTZ
// clients in the common pass. The drive and the focus search run as its periodic work.
//
// The AF mode selects what moves zoom and focus: in daemon mode, the daemon sends moves of counted
// steps; in micom mode, it writes the jog registers, and the micom moves the motors. The drive and
// the motor reset sleep on the loop's thread while the motors move, and nothing else is served
// meanwhile. The focus search never sleeps for a move: it returns to the loop until the move has
// ended. It blocks only for the focus measure and for saving the positions. The P-iris has its own
// worker thread.
#pragma once

#include <cstdint>

#include "context/rs232_context.h"

// First parameter of CAMERA_CODE_AF_MODE for daemon mode; any other value selects micom mode.
constexpr int8_t LENS_AF_MODE_DAEMON = 3;

// Runs the mode on `p_param` until the stop flag is set. Returns 0, or -1 after a line on standard
// output if `p_param` is null. Stopping takes up to 3 seconds if the P-iris worker is busy. Does
// not return after a firmware-update command, which reboots the device. Main thread only.
int camd_a5s(Rs232Context* p_param);
