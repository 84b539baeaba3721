// LineSource: the serial line as a source of the pass, through a hang-up and back.
//
// A line whose device goes away (an adapter is unplugged, the far end of a pty closes) is ready
// for ever and has nothing. It is then closed and taken out of the event set, and opened again with
// the settings of start-up: the first attempt comes LINE_SOURCE_RETRY_S later, and so does each
// further one. One line on standard error says that it is lost, and one that it is back: when it
// has a device that took the settings. What is sent meanwhile is lost, as on a closed port. Main
// thread only; nothing here waits for the line.
#pragma once

#include <cstdint>

#include "context/rs232_context.h"

// Seconds between two attempts to open the line again.
constexpr int LINE_SOURCE_RETRY_S = 1;

struct LineSource {
  Rs232Context* context;  // borrowed: holds the line, which its event set watches
  int64_t retry_us;       // while the line is lost: monotonic time of the next attempt
};

// The line of `context` is open.
void LineSourceInit(LineSource* self, Rs232Context* context);

// Reads once, `size` bytes at most. Returns the bytes read, or 0 when there were none; a line that
// turns out to be gone is lost from then on.
int LineSourceRead(LineSource* self, uint8_t* buffer, int size);

// Tries to open a lost line again if it is time to.
void LineSourceServe(LineSource* self);

// Microseconds until LineSourceServe has something to do; INT64_MAX while the line is there.
int64_t LineSourceWaitLimitUs(const LineSource& self);
