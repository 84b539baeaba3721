// Writes a new firmware image into the micom of an HD camera module.
//
// An ordinary frame switches the micom to its update mode; after that it accepts the packets of
// micom_firmware.h at a different line speed. The port stays at that speed afterwards. Each packet
// is sent after the answer to the previous one. A failure at any step ends the update; it cannot be
// resumed.
#pragma once

#include "context/rs232_context.h"
#include "serial/serial_port.h"

// Another process stores the image here.
constexpr char MICOM_FIRMWARE_PATH[] = "/tmp/micom_firmware";

// Line settings in update mode.
constexpr SerialLine MICOM_UPDATE_LINE = {
    .baud_rate = 115200, .data_bits = 8, .parity = 0, .stop_bits = 1};

// Timeouts of MICOM_ACK: of the whole acknowledgement (milliseconds), and of each of its bytes
// (seconds).
constexpr int MICOM_ACK_TIMEOUT_MS = 10'000;
constexpr int MICOM_ACK_BYTE_TIMEOUT_S = 1;
// Timeout of the answer to a packet, seconds.
constexpr int MICOM_ANSWER_TIMEOUT_S = 3;
// Tries for one data packet per round, and rounds before the update is given up.
constexpr int MICOM_TRIES_PER_ROUND = 20;
constexpr int MICOM_ROUNDS = 5;

// Runs the whole update on the daemon's serial port. Closes the port, reopens it and stores the new
// descriptor in `context`. Blocks until the end, seconds to minutes, with nothing else served. Main
// thread only. Returns 0, or -1 after one line with the reason (without an image, CUTIL_LoadFile
// prints another one before it).
int MicomFirmwareUpdate(Rs232Context* context);
