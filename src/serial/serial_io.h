// Send, receive and trace on the daemon's serial port.
//
// Every mode uses the serial line through these functions. They work on the single port of
// serial_port.h and on the trace level of the context. The trace prints one time-stamped line of
// hexadecimal bytes on standard output for every send and receive. Each line is written with one
// call; a line of more than about 600 bytes takes several.
#pragma once

#include <cstdint>

// Placeholder for the descriptor argument, which the functions below ignore: there is only one
// port.
constexpr int SERIAL_ONE_PORT = -1;

// Tags of the trace lines.
constexpr char SERIAL_TRACE_SEND[] = "SEND";
constexpr char SERIAL_TRACE_RECV[] = "RECV";

// Prints one trace line: local time "MM/DD hh:mm:ss.uuuuuu" (microseconds padded with blanks), the
// tag in six columns, the length in four, a colon, then each byte as two hexadecimal digits and a
// blank. Prints no bytes if `length` is 0 or less.
void SerialTrace(const char* tag, const uint8_t* buffer, int length);

// Prints the line only if the trace level and `length` are not 0.
void SerialTraceIfEnabled(const char* tag, const uint8_t* buffer, int length);

// Writes `length` bytes and waits until they have left the line; blocks as SerialPort::Write does.
// Returns the result of that write (a short count is a short write), or -1 if the port is closed or
// `buffer` is null.
int SerialSend(int fd, const void* buffer, int length);

// Reads until `length` bytes have arrived or the timeout has passed: `timeout_s` whole seconds of
// the wall clock. The call thus ends after about timeout_s + 1 seconds at the latest, even if that
// clock is set back. Read errors do not end it. Returns the bytes stored (0 to `length`), or -1 if
// the port is closed or `buffer` is null.
int SerialRecv(int fd, void* buffer, int length, int timeout_s);
