// The UDP half of the socket library: IPv4 datagrams, nearly always on 127.0.0.1.
//
// Free functions on plain descriptors; they keep no state, none retries, any thread may call
// them on its own descriptors. A port is given in host order, its low 16 bits count. Messages
// go to standard output, one line each. Descriptors made here are close-on-exec and belong to
// the caller.
#pragma once

#include <netinet/in.h>

// Opens a socket bound to 127.0.0.1:port, with SO_REUSEADDR. Returns it or -1.
int ZSK_OpenLocalUDPSSocket(int port);

// Opens an unbound socket; the system gives it a port at its first send. Returns it or -1.
int ZSK_OpenLocalUDPCSocket();

// Sends one datagram to 127.0.0.1:port in one system call. Returns the bytes sent or -1. The
// descriptor is not tested first.
int ZSK_SendLocalUDPData(int fd, int port, const void* buf, int len);

// Waits at most sec + usec for a datagram and takes it; `from` receives its sender. With `wait` 0
// both times are ignored and the call blocks until a datagram comes. Returns its
// length, or -1 when the time ran out, or waiting or receiving failed.
int ZSK_RecvUDPDataEx(int fd, void* buf, int len, sockaddr_in* from, long sec, long usec, int wait);

// Sends one datagram to `to`. Returns the bytes sent or -1; prints nothing.
int ZSK_SendUDPData(int fd, const void* buf, int len, const sockaddr_in* to);

// Makes a descriptor non-blocking. Returns its new status flags; errors are not reported.
int ZSK_SetNonBlocking(int fd);

// --- Part of the interface, but not called by the daemon ----------------------------------------

// Takes one datagram if one waits; never blocks. Returns its length, 0 when nothing waits (or
// an empty datagram came), -1 when receiving failed. `port` filters nothing.
int ZSK_RecvLocalUDPData(int fd, int port, void* buf, int len);

// As ZSK_RecvUDPDataEx with a wait, but 0 when the time ran out or the wait failed.
int ZSK_RecvUDPDataTimeout(int fd, void* buf, int len, sockaddr_in* from, long sec, long usec);

// Returns the size in bytes that the system reports for SO_SNDBUF or SO_RCVBUF, 0 on failure.
int ZSK_GetSocketBufferSize(int fd, int option);

// Enlarges a buffer (SO_SNDBUF or SO_RCVBUF) towards `size` bytes: where the system refuses,
// half the way from the present size is tried, and so on. Returns the size that was accepted,
// or the present size when it is large enough already or nothing larger was accepted.
int ZSK_SetSocketBufferSize(int fd, int size, int option);
