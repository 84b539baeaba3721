// Send, receive and trace on the daemon's serial port.
//
// Every mode talks to the line through these. They work on the one port of serial_port.h and on
// the trace level of the context. The trace is the daemon's only record of serial traffic: one
// time-stamped line of hexadecimal bytes on standard output for every send and receive, written
// in one piece (a line of more than some 600 bytes in several).
#pragma once

#include <cstdint>

// In place of a descriptor, which the calls below take and do not use: there is one port.
constexpr int SERIAL_ONE_PORT = -1;

// Tags of the trace lines.
constexpr char SERIAL_TRACE_SEND[] = "SEND";
constexpr char SERIAL_TRACE_RECV[] = "RECV";

// Prints one trace line: local time "MM/DD hh:mm:ss.uuuuuu" (microseconds padded with blanks),
// the tag in six columns, the length in four, a colon, each byte as two hexadecimal digits and
// a blank. A `length` of 0 or less prints no bytes.
void SerialTrace(const char* tag, const uint8_t* buffer, int length);

// The same when the trace level is not 0 and `length` is not 0.
void SerialTraceIfEnabled(const char* tag, const uint8_t* buffer, int length);

// Writes `length` bytes and waits until they have left the line; blocks as SerialPort::Write
// does. Returns what the port's write returned (a short
// count is a short write), or -1 while the port is closed or when `buffer` is null.
int SerialSend(int fd, const void* buffer, int length);

// Reads until `length` bytes are there or the deadline has passed: `timeout_s` whole seconds of
// the wall clock, so the call ends about timeout_s + 1 seconds after it began at the latest, also
// when that clock is set back. Failed reads do not end it. Returns the bytes stored
// (0 to `length`), or -1 while the port is closed or when `buffer` is null.
int SerialRecv(int fd, void* buffer, int length, int timeout_s);
