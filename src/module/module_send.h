// Sends frames to the camera module, each with one write on the daemon's serial port.
//
// Both functions block until the frame has left the line. They return the result of the port's
// write, or -1 while the port is closed. `fd` is ignored: pass SERIAL_ONE_PORT.
#pragma once

#include <cstdint>

#include "module/hd_frame.h"

// Sends a Pelco-D frame to an SD module; command 1 is 0.
int SdModuleSend(int fd, uint8_t command2, uint8_t data1, uint8_t data2);

// Sends a frame to the micom of an HD module.
int HdModuleSend(int fd, HdCommand command, HdAccess access, uint8_t data);
