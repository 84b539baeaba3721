// CPTZSVR: the PTZ TCP server.
//
// A listener and up to ten clients. What a client sends is read by the mode and goes to the
// serial line unchanged; what the line says goes to every client. The sockets are the server's
// own and are not in the event set. A client that cannot take its bytes now gets them later, from
// a queue of its own; the others notice nothing of it. Main thread only. Messages go to standard
// error.
#pragma once

#include <poll.h>

#include <cstdint>
#include <span>

#include "relay/send_queue.h"

constexpr int CPTZSVR_MAX_CLIENTS = 10;
// Bytes that one Recv takes at most.
constexpr int CPTZSVR_RECV_MAX = 256;
// Seconds that a client may leave its queue waiting without taking a byte before it is dropped.
constexpr int CPTZSVR_SEND_TIMEOUT_S = 10;

// A client that has vanished without a word (its cable is pulled) is dropped once it has been
// silent for CPTZSVR_KEEPALIVE_IDLE_S and then leaves CPTZSVR_KEEPALIVE_PROBES questions
// unanswered, one every CPTZSVR_KEEPALIVE_INTERVAL_S. Bytes sent to it may stay unacknowledged for
// as long.
constexpr int CPTZSVR_KEEPALIVE_IDLE_S = 30;
constexpr int CPTZSVR_KEEPALIVE_INTERVAL_S = 10;
constexpr int CPTZSVR_KEEPALIVE_PROBES = 3;
// Send buffer of a client in the kernel, bytes (the kernel counts twice as many, its own needs
// included). Left alone it grows to megabytes for a client that reads nothing.
constexpr int CPTZSVR_SEND_BUFFER = 32 * 1024;

// What the server waits for: each client in the order of the slots, then the listener. One that
// is not there holds a negative descriptor, which poll passes over.
constexpr size_t CPTZSVR_LISTENER_SOURCE = CPTZSVR_MAX_CLIENTS;
constexpr size_t CPTZSVR_SOURCES = CPTZSVR_MAX_CLIENTS + 1;

struct CPTZSVR {
  int listener;                      // -1 when there is none
  int clients[CPTZSVR_MAX_CLIENTS];  // a free slot holds -1
  int16_t port;

  // Closes the listener and disconnects every client.
  void (*Close)(CPTZSVR* self);

  // Accepts one client if one comes within `us` microseconds (0 polls). A client beyond the
  // tenth is closed at once. Returns 0, or -1 without a listener. Where accepting fails
  // for a reason that lasts (no descriptor left) it prints a line and leaves the listener alone
  // for a second.
  int (*Accept)(CPTZSVR* self, int us);

  // Reads once from the lowest-numbered client that has data, at most CPTZSVR_RECV_MAX bytes.
  // Waits at most `us` microseconds a client (0 polls). Clients that have closed or failed are
  // disconnected on the way; one that has closed with bytes in its queue gets them first. Returns
  // the bytes read, or -1 when there were none. The daemon calls CPTZSVR_RecvReady instead.
  int (*Recv)(CPTZSVR* self, void* buf, int us);

  // Sends `len` bytes (at least 1) to every client without waiting: what one cannot take now goes
  // into its queue. One whose send fails or whose queue is full is disconnected. Returns 0.
  int (*SendAll)(CPTZSVR* self, const void* buf, int len);

  int64_t accept_backoff_until_us;        // monotonic time before which the listener is left alone
  SendQueue queues[CPTZSVR_MAX_CLIENTS];  // what each client could not take yet
  // While a queue waits: when the client last took some of it.
  int64_t last_progress_us[CPTZSVR_MAX_CLIENTS];
  bool read_closed[CPTZSVR_MAX_CLIENTS];  // the client sends no more, but takes what waits
};

// Starts the server. A port that another process serves already leaves it without a listener
// (the probe's connection is closed at once); the line of a failed probe on standard error is
// normal. Returns 0, or -1 when the listener could not be made.
int CPTZSVR_Init(CPTZSVR* self, int16_t port);

// Recv without its wait: reads from the lowest-numbered client for which the polled `sources`, in
// the order of the slots, report anything but room.
int CPTZSVR_RecvReady(CPTZSVR* self, void* buf,
                      std::span<const pollfd, CPTZSVR_MAX_CLIENTS> sources);

// Number of connected clients.
int CPTZSVR_ClientCount(const CPTZSVR* self);

// Closes the client in `*slot` if there is one and frees the slot; its queue is not touched.
void CPTZSVR_Disconnect(int* slot);

// Fills `sources` for a poll over the whole server, or without what clients send when `input` is
// false; the descriptors stay the server's.
void CPTZSVR_Watch(const CPTZSVR* self, bool input, std::span<pollfd, CPTZSVR_SOURCES> sources);

// Microseconds after which the server has to be served again even if none of its sources is
// ready; INT64_MAX when that may take for ever.
int64_t CPTZSVR_WaitLimitUs(const CPTZSVR* self);

// Sends what clients that have room again, by the polled `sources`, can take of their queues.
// Those that fail, or that have taken nothing for CPTZSVR_SEND_TIMEOUT_S, are disconnected.
void CPTZSVR_SendQueued(CPTZSVR* self, std::span<const pollfd, CPTZSVR_SOURCES> sources);
