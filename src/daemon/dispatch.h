// Selects the mode for the device's model.
#pragma once

#include "context/rs232_context.h"

// Runs the mode for the model in `context->settings`; models without a mode of their own run the
// relay. Blocks and returns once the stop flag is set. In the HD and lens modes it does not return
// after a firmware-update command, which reboots the device.
void RunMode(Rs232Context* context);
