// The TCP half of the socket library: connect, listen, send a whole buffer within a limit.
//
// Free functions on plain descriptors; they keep no state, any thread may call them on its own
// descriptors. A port is given in host order, its low 16 bits count. A failure returns a
// negative value and prints one line unless its code says otherwise; a descriptor made on the
// way is closed. Every descriptor made here is close-on-exec and belongs to the caller.
#pragma once

// Connections that may wait at a listener.
constexpr int ZSK_BACKLOG = 10;

// Seconds after which ZSK_ConnectTCPSocket gives up.
constexpr int ZSK_CONNECT_TIMEOUT_S = 3;

// Option bits of ZSK_BindTCPSocketEx.
enum ZskBindOption : int {
  ZSK_BIND_REUSEADDR = 1,  // SO_REUSEADDR
  ZSK_BIND_NODELAY = 2,    // TCP_NODELAY
};

// Results of ZSK_SendTCPStream below zero.
enum ZskSendError : int {
  ZSKE_TCP_SEND_TIMEOUT = -1,   // not all sent by the deadline
  ZSKE_TCP_SEND_CRITICAL = -2,  // send failed
  ZSKE_TCP_SEND_BAD_FD = -3,    // negative descriptor
  ZSKE_TCP_SEND_NO_DATA = -4,   // null buffer or length 0
};

// Connects to an IPv4 host, given by name or in dotted form. Blocks until the connection stands
// or is refused, for ZSK_CONNECT_TIMEOUT_S at most; a signal ends the wait. Returns the descriptor
// or -1. Messages on standard error.
int ZSK_ConnectTCPSocket(const char* host, int port);

// Makes an IPv4 listener on all addresses with the ZskBindOption bits `options`.
// Returns the descriptor or -1. Messages on standard error.
int ZSK_BindTCPSocketEx(int port, int options);

// Sends what the peer has room for, `len` bytes (at least 1) at most, without waiting. Returns the
// bytes that it took, 0 when it has no room, or ZSKE_TCP_SEND_CRITICAL when the connection failed;
// never a signal. Messages on standard output.
int ZSK_SendTCPNow(int fd, const void* buf, int len);

// --- Part of the interface, but not called by the daemon ----------------------------------------

// Sends `len` bytes on a connected socket. Where the peer has no room the call waits for room
// without holding the processor, until the deadline: `timeout_s` whole seconds of wall-clock
// time (so the call ends between timeout_s and timeout_s + 1 seconds); 0 sets none.
// Returns `len` when all was sent, else a ZskSendError (a negative `len` is returned as it is);
// a passed deadline and a bad descriptor print nothing.
// A peer that is gone gives ZSKE_TCP_SEND_CRITICAL, never a signal. Messages on standard output.
int ZSK_SendTCPStream(int fd, const void* buf, int len, int timeout_s);

// Starts a connection without waiting for it. `*fd_out` receives the non-blocking descriptor as
// soon as connecting has begun. Returns 0 when connected at once, 1 while the connection is in
// progress (the caller waits until the socket is writable and reads SO_ERROR), -1 on failure
// (`*fd_out` is then no valid descriptor). A host given by name is looked up first, which
// blocks. Messages on standard error.
int ZSK_ASyncConnectTCPSocket(int* fd_out, const char* host, int port);

// Returns 1 when the `len` characters have the form of a dotted IPv4 address, else 0: digits in
// groups of at most three with three dots. Empty groups and values above 255 pass.
int ZSK_IsDottedQuad(const char* text, int len);

// Listeners with SO_REUSEADDR and a send buffer of 4 MiB. Each returns the descriptor or -1;
// messages on standard output. IPv6 addresses carry the scope of interface eth0.
int ZSK_BindTCPSocket(int port);                      // IPv4, all addresses
int ZSK_BindTCPSocketLocal(int port, int local);      // IPv4, 127.0.0.1 when `local` is not 0
int ZSK_BindTCP6Socket(int port);                     // IPv6, all addresses
int ZSK_BindTCP6SocketLocal(int port, int loopback);  // IPv6, ::1 when `loopback` is not 0
