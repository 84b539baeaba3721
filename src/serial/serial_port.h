// SerialPort: the device's second serial line as a raw, non-blocking terminal.
//
// The daemon has one port object; the operations of serial_io.h reach it through a global
// pointer that is null while the port is closed. Each write is one system call and
// threads take turns for it, so two may write whole frames. Only the main thread opens and closes;
// a thread that writes afterwards fails softly.
#pragma once

#include <termios.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>

#include "context/rs232_context.h"

// Where the path of the second serial device stands.
constexpr char SERIAL_CAPABILITIES_PATH[] = "/etc/capabilities.conf";
constexpr char SERIAL_DEVICE_KEY[] = "Serial.2.DevPath";

// A speed of the line: bits per second, and the terminal interface's code.
struct SerialSpeed {
  int32_t baud_rate;
  speed_t code;
};
constexpr std::array<SerialSpeed, 8> SERIAL_SPEEDS = {{
    {1200, B1200},
    {2400, B2400},
    {4800, B4800},
    {9600, B9600},
    {19200, B19200},
    {38400, B38400},
    {57600, B57600},
    {115200, B115200},
}};
constexpr SerialSpeed SERIAL_DEFAULT_SPEED = {9600, B9600};

// Line settings as the parameter block stores them.
struct SerialLine {
  int32_t baud_rate;  // of SERIAL_SPEEDS; any other is SERIAL_DEFAULT_SPEED
  int32_t data_bits;  // 5, 6, 7; any other is 8
  int32_t parity;     // 1 even, 2 odd; any other is none
  int32_t stop_bits;  // 2; any other is 1
};

// The line settings that start-up read.
SerialLine SerialLineOf(const Rs232Settings& settings);

// Results of SerialPort::Read below zero.
enum SerialReadError : int {
  SERIAL_READ_FAILED = -1,
  SERIAL_READ_CLOSED = -2,
  SERIAL_READ_NO_BUFFER = -3,
  SERIAL_READ_TIMEOUT = -5,
};

// Interrupts a drain call of the driver's that lasts too long. SerialPortOpen sets its handler; a
// thread that writes must not block it.
constexpr int SERIAL_DRAIN_SIGNAL = SIGUSR2;

struct SerialPort {
  std::atomic<int> fd;  // the open device, -1 when not open
  termios saved;        // settings found on the device when it was opened

  // Restores the saved settings and closes the device; nothing happens when it is not open. What a
  // wait that was given up left unsent is discarded first, as far as the driver can, and the
  // device's FIFO gets some tenths of a second: nothing goes out at another speed.
  void (*Close)(SerialPort* self);

  // Writes the buffer with one `write` (what does not fit is not written) and waits until the
  // last bit has left the transmitter. The wait keeps the processor busy where the driver tells
  // when that is; elsewhere it sleeps in the driver's drain call. It is given up once it has lasted
  // longer than the bytes need on the line plus a margin. Once the daemon is told to end, all waits
  // together get one second. Returns what `write` returned, or -1 when the port is not open.
  int (*Write)(SerialPort* self, const void* buffer, int length);

  // Waits at most `timeout_ms` (not negative) for input and reads once, at most `length` bytes.
  // Returns the bytes read, 0 at the end of file, or a SerialReadError.
  int (*Read)(SerialPort* self, void* buffer, int length, int timeout_ms);

  std::atomic<bool> tells_transmitter;  // the driver may know when the transmitter is empty
  std::atomic<bool> has_unsent;         // the wait of the last write was given up
  std::atomic<int64_t> stop_seen_us;    // monotonic time at which a wait found the stop flag set; 0
};

// Opens `path` with the line settings and saves those it finds; makes standard output
// unbuffered, so that trace lines appear as they are printed. Returns 0, or -1 when the device
// cannot be opened; prints nothing.
int SerialPortOpen(SerialPort* self, const char* path, const SerialLine& line);

// The open port, null while it is closed. Set by OpenRS232 and CloseRS232 only.
extern std::atomic<SerialPort*> g_serial_port;

// Opens the daemon's port, which must be closed, on the device that SERIAL_CAPABILITIES_PATH names
// and stores its descriptor, or -1, in `context`. Returns what it stored.
int OpenRS232(Rs232Context* context, const SerialLine& line);

// Whether the open port of `context` has a device behind it that took the settings of `line`. A
// driver without one (an unbound UART leaves its node) opens, keeps what it is told and fails every
// read, even one of no bytes. Speed and framing prove nothing: a pty keeps no framing, and an
// adapter may run at the nearest speed it has.
bool IsRS232Usable(const Rs232Context& context, const SerialLine& line);

// Path of the device that OpenRS232 opened last, or failed to open; empty before.
const char* OpenedDevicePath();

// Closes the daemon's port if it is open; the descriptor in `context` becomes -1. Returns 0.
int CloseRS232(Rs232Context* context);
