// Chooses the one mode of this device.
#pragma once

#include "context/rs232_context.h"

// Runs the mode of the model in `context` until the stop flag is set.
void RunMode(Rs232Context* context);
