// The two records that every mode shares, and the stop flag.
//
// Start-up fills both records on the main thread before a mode runs, and owns every object they
// point to; a mode borrows these objects and never frees one. Later, only opening and closing the
// serial port (`serial`) and tear-down write to the context. Nothing here blocks.
#pragma once

#include <atomic>
#include <cstdint>

struct CFDEVENT;
struct CICOMM;
struct CPTZSVR;

// Size of the model name, NUL included.
constexpr int RS232_MODEL_NAME_SIZE = 128;

// Settings from the configuration files and the parameter block. Read once, at start-up.
struct Rs232Settings {
  char model[RS232_MODEL_NAME_SIZE];  // device model, NUL-terminated
  int32_t udp_port;                   // this daemon's local UDP port; 0: assigned by the system
  int32_t command_port;  // the daemon's port on the command channel, RS232_COMMAND_PORT
  int32_t baud_rate;     // bits per second
  int32_t data_bits;  // unchecked, like baud rate and stop bits: the serial port replaces unknown
                      // values by defaults
  int32_t parity;     // 0 none, 1 even, 2 odd
  int32_t stop_bits;
  int16_t ptz_port;  // TCP port of the PTZ server; 0 or negative: no server
};

// Everything a mode works on.
struct Rs232Context {
  int32_t trace_level;         // non-zero: print the serial trace
  std::atomic<int32_t>* stop;  // points to g_rs232_stop
  Rs232Settings* settings;
  CFDEVENT* events;     // watches the command channel, the serial line and the UDP socket
  CPTZSVR* ptz_server;  // null if the PTZ port is not positive
  CICOMM* command;      // command channel bound to 127.0.0.1:RS232_COMMAND_PORT
  int32_t serial;       // descriptor of the serial line, -1 while it is closed or lost
  int32_t udp_socket;   // datagram socket bound to 127.0.0.1:settings->udp_port
};

// A non-zero value ends the running mode at its next pass. Set by SIGTERM and by a stop datagram;
// any thread may read it. No other data depends on it, so relaxed access is enough.
extern std::atomic<int32_t> g_rs232_stop;
// An eventfd that becomes readable on SIGTERM and so ends the wait of the pass. -1 if it could not
// be created; the pass then waits at most one second at a time.
extern int g_rs232_stop_event;
static_assert(std::atomic<int32_t>::is_always_lock_free, "a signal handler sets the stop flag");

// The settings and the context of this process.
extern Rs232Settings g_rs232_settings;
extern Rs232Context g_rs232_context;
