// Entry of the motorized-lens mode.
//
// The lens is not driven yet: the entry says so in one line and serves the line as it is (bytes
// between the serial line, PTZ clients and local processes) until the stop flag is set.
#pragma once

#include "context/rs232_context.h"

// Returns 0 at the stop flag, or -1 at once when `p_param` is null.
int camd_a5s(Rs232Context* p_param);
