// Entries of the camera-module modes.
//
// Neither module is driven yet: each entry says so in one line and serves the line as it is
// (bytes between the serial line, PTZ clients and local processes) until the stop flag is set.
#pragma once

#include "context/rs232_context.h"

// SD camera module. Returns 0 at the stop flag, or -1 at once when `p_param` is null.
int camd_cmod_sd(Rs232Context* p_param);

// HD camera module. As above.
int camd_cmod_hd(Rs232Context* p_param);
