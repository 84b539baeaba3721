// UDP sockets: IPv4 datagrams, mostly on 127.0.0.1.
//
// Free functions on plain descriptors, without state and without retries; any thread may call them
// on its own descriptors. Ports are in host order; only the low 16 bits count. Messages go to
// standard output, one line each. Descriptors opened here are close-on-exec and belong to the
// caller.
#pragma once

#include <netinet/in.h>

// Opens a socket bound to 127.0.0.1:port, with SO_REUSEADDR. Returns the descriptor or -1.
int ZSK_OpenLocalUDPSSocket(int port);

// Opens an unbound socket; the system assigns a port with the first send. Returns the descriptor or
// -1.
int ZSK_OpenLocalUDPCSocket();

// Sends one datagram to 127.0.0.1:port in one system call. Returns the bytes sent or -1. Does not
// check the descriptor first.
int ZSK_SendLocalUDPData(int fd, int port, const void* buf, int len);

// Waits at most `sec` seconds plus `usec` microseconds for a datagram and receives it; `from`
// receives the sender's address. If `wait` is 0, ignores both times and blocks until a datagram
// arrives. Returns its length, or -1 on timeout or if waiting or receiving failed.
int ZSK_RecvUDPDataEx(int fd, void* buf, int len, sockaddr_in* from, long sec, long usec, int wait);

// Sends one datagram to `to`. Returns the bytes sent or -1; prints nothing.
int ZSK_SendUDPData(int fd, const void* buf, int len, const sockaddr_in* to);

// Makes a descriptor non-blocking. Returns the new status flags; does not report errors.
int ZSK_SetNonBlocking(int fd);

// --- Interface functions that the daemon does not call ------------------------------------------

// Receives one datagram if there is one; never blocks. Returns its length, 0 if there is none (or
// it is empty), -1 if receiving failed. `port` does not filter anything.
int ZSK_RecvLocalUDPData(int fd, int port, void* buf, int len);

// Like ZSK_RecvUDPDataEx with a wait, but returns 0 on timeout or if the wait failed.
int ZSK_RecvUDPDataTimeout(int fd, void* buf, int len, sockaddr_in* from, long sec, long usec);

// Returns the size in bytes that the system reports for SO_SNDBUF or SO_RCVBUF, or 0 on failure.
int ZSK_GetSocketBufferSize(int fd, int option);

// Enlarges a socket buffer (SO_SNDBUF or SO_RCVBUF) to `size` bytes. If the system refuses, tries
// half-way between the current size and `size`, and so on. Returns the size that was accepted, or
// the current size if it is large enough or nothing larger was accepted.
int ZSK_SetSocketBufferSize(int fd, int size, int option);
