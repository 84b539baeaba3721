// CPTZSVR: the PTZ TCP server.
//
// A listener and up to ten clients. The mode reads what a client sends and writes it to the serial
// line unchanged; bytes from the line go to every client. The server owns its sockets; they are not
// in the event set. If a client cannot accept its bytes, they wait in a queue of its own and the
// other clients are not affected. Main thread only. Messages go to standard error.
#pragma once

#include <poll.h>

#include <cstdint>
#include <span>

#include "relay/send_queue.h"

constexpr int CPTZSVR_MAX_CLIENTS = 10;
// Most bytes that one Recv reads.
constexpr int CPTZSVR_RECV_MAX = 256;
// A client whose queue makes no progress for this many seconds is disconnected.
constexpr int CPTZSVR_SEND_TIMEOUT_S = 10;

// Keepalive: a client that vanishes without closing (its cable is pulled) is disconnected after
// CPTZSVR_KEEPALIVE_IDLE_S of silence and CPTZSVR_KEEPALIVE_PROBES unanswered probes, one every
// CPTZSVR_KEEPALIVE_INTERVAL_S. Unacknowledged data times out after the same total.
constexpr int CPTZSVR_KEEPALIVE_IDLE_S = 30;
constexpr int CPTZSVR_KEEPALIVE_INTERVAL_S = 10;
constexpr int CPTZSVR_KEEPALIVE_PROBES = 3;
// Kernel send buffer of a client, bytes (the kernel doubles it for its own overhead). By default it
// would grow to megabytes for a client that does not read.
constexpr int CPTZSVR_SEND_BUFFER = 32 * 1024;

// Poll sources of the server: each client in slot order, then the listener. An absent one has a
// negative descriptor, which poll ignores.
constexpr size_t CPTZSVR_LISTENER_SOURCE = CPTZSVR_MAX_CLIENTS;
constexpr size_t CPTZSVR_SOURCES = CPTZSVR_MAX_CLIENTS + 1;

struct CPTZSVR {
  int listener;                      // -1 if there is none
  int clients[CPTZSVR_MAX_CLIENTS];  // a free slot holds -1
  int16_t port;

  // Closes the listener and disconnects every client.
  void (*Close)(CPTZSVR* self);

  // Accepts one client if one connects within `us` microseconds (0 polls). An eleventh client is
  // closed at once. Returns 0, or -1 without a listener. If accept fails for a lasting reason (no
  // descriptor left), prints one line and backs off for a second.
  int (*Accept)(CPTZSVR* self, int us);

  // Reads once, at most CPTZSVR_RECV_MAX bytes, from the lowest-numbered client that has data.
  // Waits at most `us` microseconds per client (0 polls). Disconnects clients that have closed or
  // failed; a client that has closed with bytes in its queue receives them first. Returns the bytes
  // read, or -1 if there were none. The daemon calls CPTZSVR_RecvReady instead.
  int (*Recv)(CPTZSVR* self, void* buf, int us);

  // Sends `len` bytes (at least 1) to every client without waiting and queues the bytes that a
  // client cannot accept now. Disconnects a client if its send fails or its queue is full. Returns
  // 0.
  int (*SendAll)(CPTZSVR* self, const void* buf, int len);

  int64_t accept_backoff_until_us;        // monotonic time; no accept before it
  SendQueue queues[CPTZSVR_MAX_CLIENTS];  // bytes that each client could not accept yet
  // Monotonic time at which the client last accepted queued bytes; meaningful while its queue is
  // not empty.
  int64_t last_progress_us[CPTZSVR_MAX_CLIENTS];
  bool read_closed[CPTZSVR_MAX_CLIENTS];  // closed by the client; its queue is still sent
};

// Starts the server. Connects to the port first: if another process answers, closes that connection
// and runs without a listener. Normally the connection fails, which prints a line on standard
// error. Returns 0, or -1 if the listener could not be opened.
int CPTZSVR_Init(CPTZSVR* self, int16_t port);

// Recv without the wait: reads from the lowest-numbered client whose entry in the polled `sources`
// (in slot order) reports anything but POLLOUT.
int CPTZSVR_RecvReady(CPTZSVR* self, void* buf,
                      std::span<const pollfd, CPTZSVR_MAX_CLIENTS> sources);

// Returns the number of connected clients.
int CPTZSVR_ClientCount(const CPTZSVR* self);

// Closes the client in `*slot` if there is one and frees the slot; does not change its queue.
void CPTZSVR_Disconnect(int* slot);

// Fills `sources` for a poll over the whole server. With `input` false, client input is not polled.
// The descriptors remain the server's.
void CPTZSVR_Watch(const CPTZSVR* self, bool input, std::span<pollfd, CPTZSVR_SOURCES> sources);

// Returns the microseconds after which the server must be served even if none of its sources is
// ready; INT64_MAX if there is no such limit.
int64_t CPTZSVR_WaitLimitUs(const CPTZSVR* self);

// Sends queued bytes to the clients that the polled `sources` report as writable. Disconnects
// clients that fail or make no progress for CPTZSVR_SEND_TIMEOUT_S.
void CPTZSVR_SendQueued(CPTZSVR* self, std::span<const pollfd, CPTZSVR_SOURCES> sources);
