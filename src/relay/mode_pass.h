// The pass that all mode loops share.
//
// One pass looks at every source once, in a fixed order, and serves what is there:
//   1. the stop flag,
//   2. the mode's periodic work,
//   3. wait until something is ready,
//   4. PTZ clients: accept one, read once from one while the serial line has room, write it there,
//   5. the UDP socket: bytes for the serial line, or the order to stop,
//   6. the command channel: camera control and other commands go to the mode,
//   7. the serial line: its bytes go to the PTZ clients, to the mode, to the trace and to the
//      local data port.
// The wait of step 3 is over every source at once, SIGTERM included, and has no end of its own: a
// daemon with nothing to do sleeps. A mode adds its hooks; whatever it leaves out is skipped. Runs
// on the main thread and blocks for that wait and for what the serial line takes.
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

// Pace of periodic work that is under way, microseconds.
constexpr int64_t MODE_PASS_PACE_US = 1000;
// What periodic work returns that waits for an event.
constexpr int64_t MODE_PASS_NO_WORK = INT64_MAX;

// What a mode does in a pass. Every hook may be null. `mode` is the mode's own state.
struct ModeHooks {
  // Name of the mode, for the service manager.
  const char* name;
  // Once a pass, before any source is looked at. Returns the microseconds after which it has to run
  // again even if nothing happens: at most MODE_PASS_PACE_US while it has work, otherwise
  // MODE_PASS_NO_WORK.
  int64_t (*periodic)(void* mode);
  // A camera-control record with the right target came on the command channel.
  void (*camera_control)(void* mode, const CameraControl& control);
  // Any other command came on the command channel.
  void (*command)(void* mode, int command);
  // Bytes came from the serial line; the PTZ clients have them already.
  void (*serial_bytes)(void* mode, std::span<const uint8_t> bytes);
  // Whether serial bytes also go to SERIAL_DATA_PORT.
  bool sends_serial_data;
};

struct ModePass {
  Rs232Context* context;   // borrowed from the mode
  const ModeHooks* hooks;  // borrowed from the mode
  void* mode;              // handed to every hook
  uint8_t ptz_buffer[CPTZSVR_RECV_MAX];
  uint8_t udp_buffer[RS232_UDP_MAX];
  SerialDataDatagram serial_data;  // serial bytes are read into its place
  LineSource line;
  // What a wait is over and found ready: the PTZ server's, the stop event, the event set's.
  pollfd sources[CPTZSVR_SOURCES + 1 + CFDEVENT_MAX_FDS];
  size_t source_count;
  bool client_backpressure;  // what PTZ clients sent waits with them: the line has no room
  int reported_clients;      // what the service manager was last told
  bool reported_line;
  int64_t stray_line_us;  // monotonic time before which no stray datagram is reported

  // Runs one pass. Returns 0, or 1 without serving anything when the stop flag is set.
  int (*RunOnce)(ModePass* self);

  // Runs passes until the stop flag is set.
  void (*Run)(ModePass* self);
};

// Readies a pass over the sources of `context`.
void ModePassInit(ModePass* self, Rs232Context* context, const ModeHooks* hooks, void* mode);
