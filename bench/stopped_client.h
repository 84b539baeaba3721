// A client of a server that does not read, as the kernel sees it from both ends.
#pragma once

#include <string>

#include "sim/wait.h"

namespace bench {

// The send buffers of the world's connections, small while it lives. The kernel holds megabytes
// for a client on loopback: at the line's rate it would take minutes until a server notices that
// nobody reads. Small buffers, as on a board with little memory, bring the moment forward.
class SmallSendBuffers {
 public:
  SmallSendBuffers();
  ~SmallSendBuffers();
  SmallSendBuffers(const SmallSendBuffers&) = delete;
  SmallSendBuffers& operator=(const SmallSendBuffers&) = delete;

 private:
  std::string before_;
};

class StoppedClient {
 public:
  // `fd` is the client's socket, which is not read from now on.
  StoppedClient(int server_port, int fd);

  // Called some times a second.
  void Look();

  // For how long the connection has taken no byte, in seconds, up to the drop.
  double TakesNothingFor() const;

  // Seconds from the last byte taken to the drop; negative while it is not dropped.
  double DroppedAfter() const { return dropped_after_; }

 private:
  unsigned server_port_;
  int fd_;
  unsigned port_ = 0;
  long held_ = 0;
  sim::Clock::time_point last_taken_ = sim::Clock::now();
  double dropped_after_ = -1;
};

}  // namespace bench
