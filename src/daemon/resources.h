// Second half of start-up: opens and releases the resources that all modes share.
//
// The command channel, the event set and the PTZ server are static objects of this unit; the serial
// port belongs to serial/serial_port, and the UDP socket is a descriptor in the context. Main
// thread only.
#pragma once

#include "context/rs232_context.h"

// Result of OpenResources: what the caller has to do next.
enum class OpenResult {
  kReady,   // everything is open: run a mode, then release
  kEnd,     // the serial line or the command channel failed: release, exit status 0
  kFailed,  // the UDP socket failed: exit with status 1 at once, without release
};

// Opens the serial line, the UDP socket, the command channel, the event set and, if the PTZ port is
// positive, the PTZ server, in this order, as configured in `settings`. Stores them in `context`,
// with a pointer to `settings`, which must outlive it. Stops at the first failure. A PTZ server
// without a listener is not a failure. An error of the UDP socket is logged to syslog.
OpenResult OpenResources(Rs232Settings* settings, Rs232Context* context);

// Releases what is open, also after OpenResult::kEnd: PTZ server, command channel, event set,
// serial line, UDP socket. Removes them from the context and restores the saved settings of the
// serial line.
void ReleaseResources(Rs232Context* context);
