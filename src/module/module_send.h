// Frames to the camera module, each sent with one write on the daemon's serial port.
//
// Both functions block until the frame has left the line and return what the port's write
// returned, or -1 while the port is closed. `fd` is not used: SERIAL_ONE_PORT stands for it.
#pragma once

#include <cstdint>

#include "module/hd_frame.h"

// Sends a Pelco-D frame to an SD module, with command 1 zero.
int SdModuleSend(int fd, uint8_t command2, uint8_t data1, uint8_t data2);

// Sends a frame to the micom of an HD module.
int HdModuleSend(int fd, HdCommand command, HdAccess access, uint8_t data);
