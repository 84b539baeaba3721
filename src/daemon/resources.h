// Second half of start-up: the resources that all modes share, opened and released in order.
//
// They are objects of this unit with static storage; the context points to them from a
// successful open until the release. Main thread only.
#pragma once

#include "context/rs232_context.h"

// What is left to do after an attempt to open.
enum class OpenResult {
  kReady,   // everything is open: run a mode, then release
  kEnd,     // an orderly early end: release, exit status 0
  kFailed,  // exit with status 1 at once, releasing nothing
};

// Opens the serial line, the UDP socket, the command channel, the event set and (when the PTZ
// port is positive) the PTZ server as `settings` say, and fills `context`. The two failures of
// the UDP socket go to syslog.
OpenResult OpenResources(Rs232Settings* settings, Rs232Context* context);

// Releases what was opened (PTZ server, command channel, event set, serial line, UDP socket) and
// takes it out of the context; the serial line gets its saved settings back.
void ReleaseResources(Rs232Context* context);
