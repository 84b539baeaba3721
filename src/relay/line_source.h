// LineSource: the serial line as a source of the pass; reopens it after a hang-up.
//
// A line whose device goes away (an adapter is unplugged, the far end of a pty closes) is always
// ready but has no data. LineSource then closes it, removes it from the event set, and tries every
// LINE_SOURCE_RETRY_S to reopen it with the settings of start-up. It prints one line on standard
// error when the line is lost, and one when it is open again and the device has accepted the
// settings. Bytes sent while the line is lost are discarded, as on a closed port. Main thread only;
// does not wait for data, but pauses for 1 ms after an empty read.
#pragma once

#include <cstdint>

#include "context/rs232_context.h"

// Interval between attempts to reopen the line, seconds.
constexpr int LINE_SOURCE_RETRY_S = 1;

struct LineSource {
  Rs232Context* context;  // borrowed; holds the line, and the event set that watches it
  int64_t retry_us;       // while the line is lost: monotonic time of the next attempt
};

// Initialises the source. The line of `context` must be open.
void LineSourceInit(LineSource* self, Rs232Context* context);

// Reads once, at most `size` bytes. Returns the bytes read, or 0 if there were none. If the device
// is gone, closes the line.
int LineSourceRead(LineSource* self, uint8_t* buffer, int size);

// Tries to reopen a lost line if an attempt is due.
void LineSourceServe(LineSource* self);

// Returns the microseconds until LineSourceServe has something to do; INT64_MAX while the line is
// open.
int64_t LineSourceWaitLimitUs(const LineSource& self);
