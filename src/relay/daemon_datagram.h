// The two kinds of datagrams on the daemon's own UDP port.
//
//   In, from any local process: a 16-bit little-endian code, then its data.
//   Out, to 127.0.0.1:SERIAL_DATA_PORT, one for every read from the serial line: a header, then the
//   bytes.
#pragma once

#include <cstdint>

#include "util/bytes.h"

// Codes of incoming datagrams.
enum Rs232UdpCode : uint16_t {
  RS232_UDP_WRITE = 0x7001,  // writes the rest to the serial line
  RS232_UDP_STOP = 0x7FFF,   // ends the daemon
};
constexpr int RS232_UDP_CODE_SIZE = 2;
// Bytes of a datagram that are read; the rest of a longer one is lost.
constexpr int RS232_UDP_MAX = 5122;

// Destination of serial data datagrams.
constexpr int SERIAL_DATA_PORT = 1860;
// Most serial bytes in one read and one datagram.
constexpr int SERIAL_DATA_MAX = 64;

constexpr char SERIAL_DATA_MAGIC[] = "PTPRP232";
constexpr uint32_t SERIAL_DATA_KIND = 1;  // the last word of the header

struct SerialDataDatagram {
  char magic[8];  // SERIAL_DATA_MAGIC without its NUL
  Le32 count;     // serial bytes that follow, 1 to SERIAL_DATA_MAX
  Le32 kind;      // SERIAL_DATA_KIND
  uint8_t bytes[SERIAL_DATA_MAX];
};
constexpr int SERIAL_DATA_HEADER_SIZE = 16;
static_assert(sizeof(SerialDataDatagram) == SERIAL_DATA_HEADER_SIZE + SERIAL_DATA_MAX);
static_assert(sizeof(SERIAL_DATA_MAGIC) - 1 == sizeof(SerialDataDatagram::magic));
