// Watches both ends of the connection of a client that does not read.
#pragma once

#include <string>

#include "sim/wait.h"

namespace bench {

// Limits the send buffers of the world's connections while it exists. On loopback the kernel
// buffers megabytes per client, so at the line's rate a server would need minutes to notice a
// stopped client. Small buffers, as on a board with little memory, shorten that time.
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
  // `fd` is the client's socket, which must not be read from now on.
  StoppedClient(int server_port, int fd);

  // Samples the connection; call it several times a second.
  void Look();

  // Seconds since the connection last accepted a byte, up to the drop.
  double TakesNothingFor() const;

  // Seconds from the last accepted byte to the drop; negative until then.
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
