// The pass that all mode loops share.
//
// One pass serves each ready source once, in a fixed order:
//   1. the stop flag: ends the loop,
//   2. the mode's periodic work,
//   3. the serial line if it is lost: reopen it once a second,
//   4. one wait until a source is ready,
//   5. PTZ clients: flush queues, accept one client, read once from one client while the serial
//      line has room, write its bytes to the line,
//   6. the UDP socket: one datagram, with bytes for the serial line or a stop request,
//   7. the command channel: one packet, passed to the mode,
//   8. the serial line: one read, passed to the PTZ clients, the mode, the trace and the local data
//      port.
// Step 4 is one poll over all sources and SIGTERM, without a timeout of its own: an idle daemon
// sleeps. A mode consists of hooks; those it leaves out are skipped. The pass runs on the main
// thread and blocks for that wait, for writes to the serial line and for the hooks.
#pragma once

#include <poll.h>

#include <cstdint>
#include <span>

#include "context/rs232_context.h"
#include "ipc/camera_control.h"
#include "relay/cfdevent.h"
#include "relay/cptzsvr.h"
#include "relay/daemon_datagram.h"
#include "relay/line_source.h"

// Longest interval between two runs of periodic work in progress, microseconds.
constexpr int64_t MODE_PASS_PACE_US = 1000;
// Result of the periodic hook if it has nothing to do until an event.
constexpr int64_t MODE_PASS_NO_WORK = INT64_MAX;

// The hooks of a mode. Any hook may be null. `mode` is the mode's own state. A hook runs on the
// main thread and blocks the pass until it returns: meanwhile no client, datagram, command or
// serial byte is served, and a stop request waits as well.
struct ModeHooks {
  // Name of the mode in the status line of the service manager.
  const char* name;
  // Runs once per pass, before the sources are polled. Returns the microseconds after which it must
  // run again even if nothing happens: at most MODE_PASS_PACE_US while it has work, otherwise
  // MODE_PASS_NO_WORK.
  int64_t (*periodic)(void* mode);
  // Handles a camera-control record addressed to this daemon (CAMERA_CONTROL_TARGET).
  void (*camera_control)(void* mode, const CameraControl& control);
  // Handles any other command from the command channel.
  void (*command)(void* mode, int command);
  // Handles bytes from the serial line, after they were sent to the PTZ clients.
  void (*serial_bytes)(void* mode, std::span<const uint8_t> bytes);
  // True if serial bytes are also sent to SERIAL_DATA_PORT.
  bool sends_serial_data;
};

struct ModePass {
  Rs232Context* context;   // borrowed from the mode
  const ModeHooks* hooks;  // borrowed from the mode
  void* mode;              // passed to every hook
  uint8_t ptz_buffer[CPTZSVR_RECV_MAX];
  uint8_t udp_buffer[RS232_UDP_MAX];
  SerialDataDatagram serial_data;  // serial bytes are read directly into it
  LineSource line;
  // Sources of the last wait with their results: the PTZ server's, the stop event, the event set's.
  pollfd sources[CPTZSVR_SOURCES + 1 + CFDEVENT_MAX_FDS];
  size_t source_count;
  bool client_backpressure;  // client input is not read, because the line has no room
  int reported_clients;      // as last reported to the service manager
  bool reported_line;
  int64_t stray_line_us;  // monotonic time; no report of stray datagrams before it

  // Runs one pass. Returns 0, or 1 without serving anything if the stop flag is set.
  int (*RunOnce)(ModePass* self);

  // Runs passes until the stop flag is set.
  void (*Run)(ModePass* self);
};

// Initialises a pass over the sources of `context`.
void ModePassInit(ModePass* self, Rs232Context* context, const ModeHooks* hooks, void* mode);
