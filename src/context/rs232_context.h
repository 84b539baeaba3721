// The two records that every mode shares, and the stop flag.
//
// Plain data: start-up fills both records on the main thread before a mode runs and owns every
// object they point to; a mode borrows them and never frees one. Nothing here blocks.
#pragma once

#include <atomic>
#include <cstdint>

struct CFDEVENT;
struct CICOMM;
struct CPTZSVR;

// Size of the model name, its NUL included.
constexpr int RS232_MODEL_NAME_SIZE = 128;

// What start-up read from the configuration files and the parameter block. Read once.
struct Rs232Settings {
  char model[RS232_MODEL_NAME_SIZE];  // device model, NUL-terminated
  int32_t udp_port;                   // this daemon's local UDP port; 0 lets the system choose
  int32_t command_port;               // own port of the command channel, RS232_COMMAND_PORT
  int32_t baud_rate;                  // plain bits per second
  int32_t data_bits;                  // as stored, like baud rate and stop bits: the serial port
                                      // takes unknown values for its defaults
  int32_t parity;                     // 0 none, 1 even, 2 odd
  int32_t stop_bits;
  int16_t ptz_port;  // TCP port of the PTZ server; not positive: no server
};

// What a mode works on.
struct Rs232Context {
  int32_t trace_level;         // non-zero: print the serial trace
  std::atomic<int32_t>* stop;  // the stop flag below
  Rs232Settings* settings;
  CFDEVENT* events;     // watches the command channel, the serial line and the UDP socket
  CPTZSVR* ptz_server;  // null when the PTZ port is not positive
  CICOMM* command;      // command channel bound to 127.0.0.1:RS232_COMMAND_PORT
  int32_t serial;       // descriptor of the open serial line, -1 once closed
  int32_t udp_socket;   // datagram socket bound to 127.0.0.1:settings->udp_port
};

// Non-zero ends the running mode at its next pass. Set by SIGTERM and by a stop datagram, read by
// every thread; it orders nothing else, so that relaxed access will do.
extern std::atomic<int32_t> g_rs232_stop;
// An eventfd that is readable from SIGTERM on: it ends the wait for work. -1 where
// there is none to be had: the wait is then a second at most.
extern int g_rs232_stop_event;
static_assert(std::atomic<int32_t>::is_always_lock_free, "a signal handler sets the stop flag");

// The process's one settings record and one context record.
extern Rs232Settings g_rs232_settings;
extern Rs232Context g_rs232_context;
