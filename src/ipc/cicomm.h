// CICOMM: the command channel between the processes of the device.
//
// Carries numbered commands between processes of the local host. Each command is one UDP datagram:
// a 32-byte header, then a payload. A process that receives commands owns a channel port. A process
// that only sends queries uses an object without a port and receives the answers on its socket's
// own port. The caller owns the object (about 200 KiB, both buffers included); no operation
// allocates. Send uses only the send buffer and Recv only the receive buffer: one thread may send
// while another receives, but two threads must not send through the same object. Messages go to
// standard error.
#pragma once

#include <cstdint>

#include "util/bytes.h"

// Channel ports.
constexpr int RS232_COMMAND_PORT = 10017;  // this daemon's
constexpr int CAMD_QUERY_PORT = 10005;     // the camera daemon's

// Header constants.
constexpr uint32_t CICOMM_MAGIC = 0x4D4F4349;  // "ICOM" as bytes
constexpr uint32_t CICOMM_VERSION = 1;

// Command numbers.
enum CicommCommand : int32_t {
  CICOMM_PCMD_PTZ = 11,                    // to this daemon; payload: camera-control record
  CICOMM_PCMD_MICOM_FIRMWARE_UPDATE = 34,  // to this daemon; payload ignored
  CAMERA_QUERY = 52,                       // to the camera daemon, and its answer
};

// Negative results of CICOMM::Wait.
enum CicommWaitError : int {
  CICOMM_WAIT_NO_SOCKET = -1,
  CICOMM_WAIT_TIMEOUT = -2,
  CICOMM_WAIT_FAILED = -3,
};

struct CicommHeader {
  Le32 magic;
  Le32 version;
  Le32 command;
  Le32 port;  // the sender's channel port; negative if it has none
  Le32 size;  // payload bytes
  Le32 reserved[3];
};
static_assert(sizeof(CicommHeader) == 32);

constexpr int CICOMM_PACKET_SIZE = 102400;
constexpr int CICOMM_HEADER_SIZE = static_cast<int>(sizeof(CicommHeader));
// Largest payload that Send accepts, bytes. An IPv4 datagram carries at most 65507 bytes, header
// included; the system refuses a larger one.
constexpr int CICOMM_MAX_DATA = CICOMM_PACKET_SIZE - CICOMM_HEADER_SIZE;

struct CicommPacket {
  CicommHeader header;
  uint8_t data[CICOMM_MAX_DATA];
};
static_assert(sizeof(CicommPacket) == CICOMM_PACKET_SIZE);

struct CICOMM {
  int socket;  // -1 when there is none
  int port;    // as passed to CICOMM_Init; sent in every header
  CicommPacket send;
  CicommPacket recv;  // the last packet received; the bytes after it are zero

  // Closes the socket. Safe to call twice. The object may be initialised again afterwards.
  void (*Close)(CICOMM* self);

  // Returns the socket's descriptor, or -1 if there is none.
  int (*GetSocket)(const CICOMM* self);

  // Waits at most `ms` milliseconds for a packet; 0 polls. Returns 0 if a packet is ready, else a
  // CicommWaitError. If a signal ends the wait, returns CICOMM_WAIT_FAILED with errno EINTR.
  int (*Wait)(CICOMM* self, int ms);

  // Sends `command` with `size` bytes of `data` (may be null if `size` is 0) to the channel `port`
  // of this host. Gives up after 3 to 4 seconds. Returns the size of header and payload on success;
  // -1 if the payload is missing, -2 if `size` is negative or exceeds CICOMM_MAX_DATA, -4 if it was
  // not sent.
  int (*Send)(CICOMM* self, int command, int port, const void* data, int size);

  // Receives one packet; blocks until one arrives. Stores its command number in `*command_out` (may
  // be null). Returns the size field of the header unchecked: only its sign is meaningful, and
  // `received` holds the real length. Returns -1 without a socket or if receiving fails. Bytes past
  // the end of the packet read as zero. Replaces a negative port field by the sender's UDP port.
  int (*Recv)(CICOMM* self, int* command_out);

  // Return header and payload of the last packet received. They point into the object; the payload
  // has CICOMM_MAX_DATA readable bytes.
  CicommHeader* (*GetHeader)(CICOMM* self);
  uint8_t* (*GetData)(CICOMM* self);

  int filled;    // bytes of `recv` that the last packet filled
  int received;  // length of the packet of the last Recv; 0 if it failed
};

// Initialises the object and opens its socket: bound to 127.0.0.1:`port` if `port` is positive,
// else unbound (0 or -1, for a client). Returns 0, or -1 if the socket could not be opened.
int CICOMM_Init(CICOMM* self, int port);

// Sends `len` bytes to UDP `port` of this host. Retries while the socket has no room, for
// `timeout_s` whole seconds of wall-clock time (0: no limit). Returns `len` if everything was sent
// before the deadline, else -1. A negative `len` is returned unchanged.
int SendTo(int socket, int port, const void* buf, int len, int timeout_s);

// --- Interface functions that the daemon does not call ------------------------------------------

// Sends one command without an object, through `socket` or, if that is negative, through a
// temporary one. `port_field` goes into the header; `port` is the destination. The timeout is
// `timeout_ms` rounded down to whole seconds; 0 seconds means no limit. Returns the size of header
// and payload on success; -1 if the payload is missing; -3 if no socket or memory is available or
// `size` is negative; else the result of SendTo. Allocates its buffer on the heap.
int CICOMM_SendCommand(int socket, int command, int port_field, int port, const void* data,
                       int size, int timeout_ms);
