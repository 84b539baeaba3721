// Writes a new firmware image into the micom of an HD camera module.
//
// The micom is told to enter its update mode with an ordinary frame and then speaks the packets
// of micom_firmware.h on a line of its own speed; the port stays at that speed afterwards. One
// packet is under way at a time. A failure at any step ends the update: there is no resuming.
#pragma once

#include "context/rs232_context.h"
#include "serial/serial_port.h"

// Where another process puts the image.
constexpr char MICOM_FIRMWARE_PATH[] = "/tmp/micom_firmware";

// The line in update mode.
constexpr SerialLine MICOM_UPDATE_LINE = {
    .baud_rate = 115200, .data_bits = 8, .parity = 0, .stop_bits = 1};

// Longest wait for the sign of the update mode, milliseconds, and for one of its bytes, seconds.
constexpr int MICOM_ACK_TIMEOUT_MS = 10'000;
constexpr int MICOM_ACK_BYTE_TIMEOUT_S = 1;
// Longest wait for the answer to a packet, seconds.
constexpr int MICOM_ANSWER_TIMEOUT_S = 3;
// Sends of one data packet in a round, and rounds before the update is given up.
constexpr int MICOM_TRIES_PER_ROUND = 20;
constexpr int MICOM_ROUNDS = 5;

// Runs the whole update on the daemon's serial port, which is closed and opened again on the
// way; its new descriptor goes into `context`. Blocks until the end: seconds to minutes, with
// nothing else served. Main thread only. Returns 0, or -1 after one line that tells why
// (and one of CUTIL_LoadFile before it when there is no image).
int MicomFirmwareUpdate(Rs232Context* context);
