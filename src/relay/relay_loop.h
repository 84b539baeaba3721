// The relay mode: connects the serial line, PTZ clients and local processes, and translates camera
// control into Pelco-D.
#pragma once

#include "context/rs232_context.h"

// Runs the relay on `context` until the stop flag is set. Returns 0. While the frames of a
// camera-control command are sent, including their waits, nothing else is served.
int RelayLoop(Rs232Context* context);
