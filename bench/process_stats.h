// What the kernel counts of a running process: processor time, wake-ups, memory, sockets.
//
// A process counts with its children, for a server that forks one for each client.
#pragma once

#include <sys/types.h>

#include <string>

namespace bench {

// Processor time of all threads so far, user and system, in seconds, to the nanosecond.
double CpuSeconds(pid_t pid);

// Processor time of one thread so far, in seconds.
double ThreadCpuSeconds(pid_t pid, pid_t thread);

// How often its threads have gone to sleep of their own accord, and so were woken.
double WakeUps(pid_t pid);

struct Memory {
  double rss_kib = 0;
  double anonymous_kib = 0;  // not backed by a file: heap, stacks, written data
};
Memory MemoryOf(pid_t pid);

// The server's end of a TCP connection on loopback, as the kernel has it.
struct ServerEnd {
  bool is_open = false;   // false once the server has closed it
  long unsent_bytes = 0;  // given to the kernel, not yet taken by the client
};
// `port` is the server's, `client_port` the client's.
ServerEnd LookUpServerEnd(int port, int client_port);

// True while somebody listens on a TCP port, on IPv4 or IPv6.
bool IsListening(int port);

}  // namespace bench
