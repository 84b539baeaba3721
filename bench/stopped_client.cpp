#include "bench/stopped_client.h"

#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>

#include "bench/process_stats.h"
#include "sim/device.h"

namespace bench {
namespace {

using sim::Clock;

constexpr char kSendBufferPath[] = "/proc/sys/net/ipv4/tcp_wmem";
constexpr char kSmallSendBuffers[] = "4096 16384 16384";

}  // namespace

SmallSendBuffers::SmallSendBuffers() : before_(sim::ReadTextFile(kSendBufferPath)) {
  sim::WriteTextFile(kSendBufferPath, kSmallSendBuffers);
}

SmallSendBuffers::~SmallSendBuffers() {
  sim::WriteTextFile(kSendBufferPath, before_);
}

StoppedClient::StoppedClient(int server_port, int fd) : server_port_(server_port), fd_(fd) {
  sockaddr_in own = {};
  socklen_t length = sizeof(own);
  getsockname(fd, reinterpret_cast<sockaddr*>(&own), &length);
  port_ = ntohs(own.sin_port);
}

void StoppedClient::Look() {
  if (dropped_after_ >= 0) return;
  const auto now = Clock::now();
  const ServerEnd end = LookUpServerEnd(server_port_, port_);
  int unread = 0;
  ioctl(fd_, FIONREAD, &unread);
  if (!end.is_open) {
    dropped_after_ = std::chrono::duration<double>(now - last_taken_).count();
    return;
  }
  // Bytes in both buffers only grow while nobody reads.
  const long held = end.unsent_bytes + unread;
  if (held > held_) last_taken_ = now;
  held_ = std::max(held_, held);
}

double StoppedClient::TakesNothingFor() const {
  return std::chrono::duration<double>(Clock::now() - last_taken_).count();
}

}  // namespace bench
