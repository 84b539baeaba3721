// The relay mode: serial line, PTZ clients and local processes joined, camera control turned
// into Pelco-D.
#pragma once

#include "context/rs232_context.h"

// Runs the relay on `context` until the stop flag is set. Returns 0. The frames of a
// camera-control command are sent, waits included, before anything else is served.
int RelayLoop(Rs232Context* context);
