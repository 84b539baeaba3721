// CICOMM: the command channel between the device's processes.
//
// Numbered commands as UDP datagrams on the local host: a 32-byte header, then a payload. A
// process that takes commands owns a channel port; one that only asks uses an object without a
// port and is answered at its socket's own port. The object (about 200 KiB, both buffers
// included) is a value of its owner; no operation allocates. Send works on the send buffer and
// Recv on the receive buffer only: one thread may send while another receives; two must not
// send through one object. Messages go to standard error.
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
  CICOMM_PCMD_PTZ = 11,                    // to this daemon: camera-control record
  CICOMM_PCMD_MICOM_FIRMWARE_UPDATE = 34,  // to this daemon: no payload read
  CAMERA_QUERY = 52,                       // to the camera daemon, and its answer
};

// Results of CICOMM::Wait below zero.
enum CicommWaitError : int {
  CICOMM_WAIT_NO_SOCKET = -1,
  CICOMM_WAIT_TIMEOUT = -2,
  CICOMM_WAIT_FAILED = -3,
};

struct CicommHeader {
  Le32 magic;
  Le32 version;
  Le32 command;
  Le32 port;  // the sender's channel port; negative from a sender without one
  Le32 size;  // payload bytes
  Le32 reserved[3];
};
static_assert(sizeof(CicommHeader) == 32);

constexpr int CICOMM_PACKET_SIZE = 102400;
constexpr int CICOMM_HEADER_SIZE = static_cast<int>(sizeof(CicommHeader));
// Largest payload that Send accepts, bytes. A single datagram over IPv4 carries at most 65507
// bytes, header included; the system refuses a longer one.
constexpr int CICOMM_MAX_DATA = CICOMM_PACKET_SIZE - CICOMM_HEADER_SIZE;

struct CicommPacket {
  CicommHeader header;
  uint8_t data[CICOMM_MAX_DATA];
};
static_assert(sizeof(CicommPacket) == CICOMM_PACKET_SIZE);

struct CICOMM {
  int socket;  // -1 when there is none
  int port;    // as given to CICOMM_Init; goes into every packet sent
  CicommPacket send;
  CicommPacket recv;  // the last packet received; all bytes behind it are zero

  // Closes the socket. May be called again; the object may then be initialised again.
  void (*Close)(CICOMM* self);

  // Returns the socket's descriptor, -1 when there is none.
  int (*GetSocket)(const CICOMM* self);

  // Waits at most `ms` milliseconds for a packet; 0 polls. Returns 0 when one waits, or a
  // CicommWaitError; CICOMM_WAIT_FAILED with errno EINTR when a signal ended the wait.
  int (*Wait)(CICOMM* self, int ms);

  // Sends `command` with `size` bytes of `data` (null allowed when `size` is 0) to the channel
  // `port` of this host, within 3 to 4 seconds. Returns header and payload size on success; -1
  // payload missing, -2 `size` negative or above CICOMM_MAX_DATA, -4 not sent.
  int (*Send)(CICOMM* self, int command, int port, const void* data, int size);

  // Takes one packet; blocks until one comes. `command_out` (may be null) receives its command
  // number. Returns the header's size field as it came, whatever the packet's real length, so
  // that only its sign means anything (`received` says what came); -1 without a socket or when
  // receiving failed. Bytes that the packet did not bring read as zero. A negative port field is
  // replaced by the sender's UDP port.
  int (*Recv)(CICOMM* self, int* command_out);

  // Header and payload of the last packet received. They point into the object; the payload has
  // CICOMM_MAX_DATA readable bytes.
  CicommHeader* (*GetHeader)(CICOMM* self);
  uint8_t* (*GetData)(CICOMM* self);

  int filled;    // bytes of `recv` that its packet filled
  int received;  // bytes that the last Recv took; 0 when it failed
};

// Fills the object and opens its socket: bound to 127.0.0.1:`port` when `port` is positive,
// else (0 or -1, a client) unbound. Returns 0, or -1 when the socket could not be made.
int CICOMM_Init(CICOMM* self, int port);

// Sends `len` bytes to UDP `port` of this host. Tries again while the socket has no room,
// until `timeout_s` whole seconds of wall-clock time have passed (0: no limit). Returns `len` when
// all was sent before the deadline, else -1 (a negative `len` is returned as it is).
int SendTo(int socket, int port, const void* buf, int len, int timeout_s);

// --- Part of the interface, but not called by the daemon ----------------------------------------

// Sends one command without an object. Uses `socket`, or one of its own when that is negative.
// `port_field` goes into the header, `port` is the destination. The time limit counts in whole
// seconds of `timeout_ms`, rounded down; 0 seconds set none. Returns header and payload size on
// success; -1 payload missing; -3 no socket or no memory (a negative `size` included); else the
// result of SendTo. Takes its buffer from the heap.
int CICOMM_SendCommand(int socket, int command, int port_field, int port, const void* data,
                       int size, int timeout_ms);
