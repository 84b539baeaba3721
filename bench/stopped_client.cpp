#include "bench/stopped_client.h"

#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "sim/device.h"

namespace bench {
namespace {

using sim::Clock;

constexpr char kSendBufferPath[] = "/proc/sys/net/ipv4/tcp_wmem";
constexpr char kSmallSendBuffers[] = "4096 16384 16384";

// Bytes in the server's send queue that have not reached the client's end yet; -1 once the server
// has closed the connection.
long UnsentBytes(unsigned server_port, unsigned client_port) {
  constexpr unsigned kEstablished = 0x01;
  constexpr unsigned kCloseWait = 0x08;
  std::ifstream table("/proc/net/tcp");
  for (std::string line; std::getline(table, line);) {
    unsigned local = 0;
    unsigned remote = 0;
    unsigned state = 0;
    unsigned long queued = 0;
    sscanf(line.c_str(), " %*d: %*8x:%4x %*8x:%4x %2x %8lx:", &local, &remote, &state, &queued);
    if (local != server_port || remote != client_port) continue;
    return state == kEstablished || state == kCloseWait ? static_cast<long>(queued) : -1;
  }
  return -1;
}

}  // namespace

SmallSendBuffers::SmallSendBuffers() : before_(sim::ReadTextFile(kSendBufferPath)) {
  sim::WriteTextFile(kSendBufferPath, kSmallSendBuffers);
}

SmallSendBuffers::~SmallSendBuffers() {
  sim::WriteTextFile(kSendBufferPath, before_);
}

StoppedClient::StoppedClient(int server_port, int fd)
    : server_port_(static_cast<unsigned>(server_port)), fd_(fd) {
  sockaddr_in own = {};
  socklen_t length = sizeof(own);
  getsockname(fd, reinterpret_cast<sockaddr*>(&own), &length);
  port_ = ntohs(own.sin_port);
}

void StoppedClient::Look() {
  if (dropped_after_ >= 0) return;
  const auto now = Clock::now();
  const long unsent = UnsentBytes(server_port_, port_);
  int unread = 0;
  ioctl(fd_, FIONREAD, &unread);
  if (unsent < 0) {
    dropped_after_ = std::chrono::duration<double>(now - last_taken_).count();
    return;
  }
  // The two buffers only grow while nobody reads.
  if (unsent + unread > held_) last_taken_ = now;
  held_ = std::max(held_, unsent + unread);
}

double StoppedClient::TakesNothingFor() const {
  return std::chrono::duration<double>(Clock::now() - last_taken_).count();
}

}  // namespace bench
