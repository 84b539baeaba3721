// CPTZSVR: the PTZ TCP server.
//
// A listener and up to ten clients. What a client sends is read by the mode and goes to the
// serial line unchanged; what the line says goes to every client. The sockets are the server's
// own and are not in the event set. Main thread only. Messages go to standard error.
#pragma once

#include <cstdint>

constexpr int CPTZSVR_MAX_CLIENTS = 10;
// Bytes that one Recv takes at most.
constexpr int CPTZSVR_RECV_MAX = 256;
// Seconds that a client may keep SendAll waiting before it is dropped.
constexpr int CPTZSVR_SEND_LIMIT_S = 10;

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
  // disconnected on the way. Returns the bytes read, or -1 when there were none.
  int (*Recv)(CPTZSVR* self, void* buf, int us);

  // Sends `len` bytes to every client. One whose send fails, or that takes too little within
  // CPTZSVR_SEND_LIMIT_S, is disconnected; it blocks the call until then. Returns 0.
  int (*SendAll)(CPTZSVR* self, const void* buf, int len);

  int64_t accept_again_us;  // monotonic time before which the listener is left alone
};

// Starts the server. A port that another process serves already leaves it without a listener
// (the probe's connection is closed at once); the line of a failed probe on standard error is
// normal. Returns 0, or -1 when the listener could not be made.
int CPTZSVR_Init(CPTZSVR* self, int16_t port);

// Closes the client in `*slot` if there is one and frees the slot.
void CPTZSVR_Disconnect(int* slot);

// True while the listener takes connections: it exists and is not being left alone.
bool CPTZSVR_IsAccepting(const CPTZSVR* self);
