// TCP sockets: connect, listen, send.
//
// Free functions on plain descriptors, without state; any thread may call them on its own
// descriptors. Ports are in host order; only the low 16 bits count. On failure they return a
// negative value, print one line unless a function's comment says otherwise, and close a descriptor
// opened in the call. Every descriptor opened here is close-on-exec and belongs to the caller.
#pragma once

// Longest queue of connections waiting for accept.
constexpr int ZSK_BACKLOG = 10;

// Timeout of ZSK_ConnectTCPSocket, seconds.
constexpr int ZSK_CONNECT_TIMEOUT_S = 3;

// Option bits of ZSK_BindTCPSocketEx.
enum ZskBindOption : int {
  ZSK_BIND_REUSEADDR = 1,  // SO_REUSEADDR
  ZSK_BIND_NODELAY = 2,    // TCP_NODELAY
};

// Negative results of ZSK_SendTCPStream.
enum ZskSendError : int {
  ZSKE_TCP_SEND_TIMEOUT = -1,   // not everything was sent by the deadline
  ZSKE_TCP_SEND_CRITICAL = -2,  // send failed
  ZSKE_TCP_SEND_BAD_FD = -3,    // negative descriptor
  ZSKE_TCP_SEND_NO_DATA = -4,   // null buffer or length 0
};

// Connects to an IPv4 host, given by name or in dotted form. Blocks until the connection is
// established or refused, at most ZSK_CONNECT_TIMEOUT_S after the name was resolved; a signal ends
// the wait. Returns the descriptor or -1. Messages go to standard error.
int ZSK_ConnectTCPSocket(const char* host, int port);

// Opens an IPv4 listener on all addresses with the ZskBindOption bits `options`. Returns the
// descriptor or -1. Messages go to standard error.
int ZSK_BindTCPSocketEx(int port, int options);

// Sends as much of `len` bytes (at least 1) as fits, without waiting. Returns the bytes sent, 0 if
// there is no room, or ZSKE_TCP_SEND_CRITICAL if the connection failed. Never raises SIGPIPE.
// Messages go to standard output.
int ZSK_SendTCPNow(int fd, const void* buf, int len);

// --- Interface functions that the daemon does not call ------------------------------------------

// Sends `len` bytes on a connected socket. If there is no room, sleeps until there is, up to the
// deadline: `timeout_s` whole seconds of wall-clock time, so the call ends after timeout_s to
// timeout_s + 1 seconds; 0 means no deadline. Returns `len` if everything was sent, else a
// ZskSendError; a negative `len` is returned unchanged. A timeout and a bad descriptor print
// nothing. A closed peer yields ZSKE_TCP_SEND_CRITICAL, never SIGPIPE. Messages go to standard
// output.
int ZSK_SendTCPStream(int fd, const void* buf, int len, int timeout_s);

// Starts connecting without waiting for the result. Stores the non-blocking descriptor in `*fd_out`
// once connecting has begun. Returns 0 if connected at once, 1 if the connection is in progress
// (the caller then waits until the socket is writable and reads SO_ERROR), -1 on failure (`*fd_out`
// is then not a valid descriptor). Resolving a host name blocks. Messages go to standard error.
int ZSK_ASyncConnectTCPSocket(int* fd_out, const char* host, int port);

// Returns 1 if the `len` characters look like a dotted IPv4 address, else 0: three dots and groups
// of at most three digits. Empty groups and values above 255 are accepted.
int ZSK_IsDottedQuad(const char* text, int len);

// Open listeners with SO_REUSEADDR and a send buffer of 4 MiB. Return the descriptor or -1.
// Messages go to standard output. IPv6 listeners use the scope of interface eth0.
int ZSK_BindTCPSocket(int port);                      // IPv4, all addresses
int ZSK_BindTCPSocketLocal(int port, int local);      // IPv4, 127.0.0.1 if `local` is not 0
int ZSK_BindTCP6Socket(int port);                     // IPv6, all addresses
int ZSK_BindTCP6SocketLocal(int port, int loopback);  // IPv6, ::1 if `loopback` is not 0
