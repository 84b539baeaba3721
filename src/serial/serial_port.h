// SerialPort: the device's second serial line as a raw, non-blocking terminal.
//
// The daemon has one port object; the functions of serial_io.h reach it through a global pointer
// that is null while the port is closed. Each write is one system call under a lock, so two threads
// may write whole frames. Only the main thread opens and closes the port; a later write by another
// thread returns an error.
#pragma once

#include <termios.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>

#include "context/rs232_context.h"

// File and key of the second serial device's path.
constexpr char SERIAL_CAPABILITIES_PATH[] = "/etc/capabilities.conf";
constexpr char SERIAL_DEVICE_KEY[] = "Serial.2.DevPath";

// A line speed: bits per second, and the code of the terminal interface.
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

// Line settings, as in the parameter block.
struct SerialLine {
  int32_t baud_rate;  // one of SERIAL_SPEEDS; any other value means SERIAL_DEFAULT_SPEED
  int32_t data_bits;  // 5, 6, 7; any other value means 8
  int32_t parity;     // 1 even, 2 odd; any other value means none
  int32_t stop_bits;  // 2; any other value means 1
};

// Returns the line settings in `settings`.
SerialLine SerialLineOf(const Rs232Settings& settings);

// Negative results of SerialPort::Read.
enum SerialReadError : int {
  SERIAL_READ_FAILED = -1,
  SERIAL_READ_CLOSED = -2,
  SERIAL_READ_NO_BUFFER = -3,
  SERIAL_READ_TIMEOUT = -5,
};

// Interrupts a drain call of the driver that takes too long. SerialPortOpen installs its handler; a
// writing thread must not block the signal.
constexpr int SERIAL_DRAIN_SIGNAL = SIGUSR2;

struct SerialPort {
  std::atomic<int> fd;  // the open device, -1 if closed
  termios saved;        // settings of the device before it was opened

  // Restores the saved settings and closes the device; does nothing if it is not open. If the last
  // drain wait was given up, first discards the driver's queue (if the driver supports it) and
  // waits up to 0.7 s for the device's FIFO to empty, so that nothing is sent at a different speed.
  void (*Close)(SerialPort* self);

  // Writes the buffer with one `write` (bytes that do not fit are not written) and waits until the
  // last bit has left the transmitter. If the driver reports the state of the transmitter, the wait
  // polls it without sleeping; otherwise it sleeps in the driver's drain call. The wait is given up
  // after the time that the bytes need on the line plus a margin; once the stop flag is set, all
  // waits together are limited to one second. Returns the result of `write`, or -1 if the port is
  // closed.
  int (*Write)(SerialPort* self, const void* buffer, int length);

  // Waits at most `timeout_ms` (not negative) for input and reads once, at most `length` bytes.
  // Returns the bytes read, 0 at end of file, or a SerialReadError.
  int (*Read)(SerialPort* self, void* buffer, int length, int timeout_ms);

  std::atomic<bool>
      tells_transmitter;         // query the transmitter; false once the driver could not report
  std::atomic<bool> has_unsent;  // the drain wait of the last write was given up
  std::atomic<int64_t>
      stop_seen_us;  // monotonic time of the first drain wait that saw the stop flag; 0: none yet
};

// Opens `path` with the line settings and saves the previous ones. Makes standard output
// unbuffered, so that trace lines appear at once. Returns 0, or -1 if the device cannot be opened;
// prints nothing.
int SerialPortOpen(SerialPort* self, const char* path, const SerialLine& line);

// The open port, null while it is closed. Only OpenRS232 and CloseRS232 set it.
extern std::atomic<SerialPort*> g_serial_port;

// Opens the daemon's port, which must be closed, on the device named in SERIAL_CAPABILITIES_PATH.
// Stores its descriptor, or -1, in `context` and returns it.
int OpenRS232(Rs232Context* context, const SerialLine& line);

// Returns true if the open port of `context` has a device that accepted the settings of `line`. The
// device node of an unbound UART remains: it can be opened and stores the settings, but every read
// fails, even of 0 bytes. Speed and framing are not compared: a pty does not store framing, and an
// adapter may run at the nearest speed it supports.
bool IsRS232Usable(const Rs232Context& context, const SerialLine& line);

// Returns the path of the device that OpenRS232 last tried to open; empty before the first call.
const char* OpenedDevicePath();

// Closes the daemon's port if it is open and sets the descriptor in `context` to -1. Returns 0.
int CloseRS232(Rs232Context* context);
