#include "sim/peers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "relay/daemon_datagram.h"

namespace sim {
namespace {

constexpr size_t kDatagramMax = 65536;

sockaddr_in Loopback(int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error(what + ": " + strerror(errno));
}

}  // namespace

PtzClient::PtzClient(int port, int receive_buffer)
    : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  if (receive_buffer != 0) {
    setsockopt(fd_.Get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof(receive_buffer));
  }
  const sockaddr_in address = Loopback(port);
  if (connect(fd_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    Fail("cannot connect to port " + std::to_string(port));
  }
  const int on = 1;
  setsockopt(fd_.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

void PtzClient::Send(std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(fd_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0) bytes = bytes.subspan(static_cast<size_t>(sent));
    const bool is_full = sent < 0 && errno == EAGAIN;
    if (sent < 0 && !(is_full && WaitReady(fd_.Get(), POLLOUT, Clock::now() + kPatience))) {
      Fail("a PTZ client cannot send");
    }
  }
}

Bytes PtzClient::Receive(size_t count, milliseconds limit) {
  const auto end = Clock::now() + limit;
  Bytes bytes(count);
  size_t received = 0;
  while (received < count && WaitReady(fd_.Get(), POLLIN, end)) {
    const ssize_t got = recv(fd_.Get(), bytes.data() + received, count - received, 0);
    if (got <= 0) break;
    received += static_cast<size_t>(got);
  }
  bytes.resize(received);
  return bytes;
}

bool PtzClient::WaitClosed(milliseconds limit) {
  const auto end = Clock::now() + limit;
  uint8_t dropped[256];
  while (WaitReady(fd_.Get(), POLLIN, end)) {
    if (recv(fd_.Get(), dropped, sizeof(dropped), 0) <= 0) return true;
  }
  return false;
}

UdpPeer::UdpPeer(int port) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in address = Loopback(port);
  if (bind(fd_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    Fail("cannot bind UDP port " + std::to_string(port));
  }
}

int UdpPeer::Port() const {
  sockaddr_in address = {};
  socklen_t length = sizeof(address);
  getsockname(fd_.Get(), reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

void UdpPeer::SendTo(int port, std::span<const uint8_t> bytes) {
  const sockaddr_in to = Loopback(port);
  if (sendto(fd_.Get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
             sizeof(to)) < 0) {
    Fail("cannot send to UDP port " + std::to_string(port));
  }
}

std::optional<Bytes> UdpPeer::Receive(milliseconds limit) {
  if (!WaitReady(fd_.Get(), POLLIN, Clock::now() + limit)) return std::nullopt;
  Bytes datagram(kDatagramMax);
  const ssize_t length = recv(fd_.Get(), datagram.data(), datagram.size(), 0);
  if (length < 0) return std::nullopt;
  datagram.resize(static_cast<size_t>(length));
  return datagram;
}

std::optional<Bytes> DecodeSerialData(std::span<const uint8_t> datagram) {
  SerialDataDatagram data = {};
  if (datagram.size() < SERIAL_DATA_HEADER_SIZE || datagram.size() > sizeof(data)) {
    return std::nullopt;
  }
  memcpy(&data, datagram.data(), datagram.size());
  const bool known = memcmp(data.magic, SERIAL_DATA_MAGIC, sizeof(data.magic)) == 0 &&
                     data.kind.Get() == SERIAL_DATA_KIND &&
                     data.count.Get() == datagram.size() - SERIAL_DATA_HEADER_SIZE;
  if (!known) return std::nullopt;
  return Bytes(data.bytes, data.bytes + data.count.Get());
}

SyslogRecorder::SyslogRecorder() : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  strcpy(address.sun_path, "/dev/log");
  unlink(address.sun_path);
  if (bind(fd_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    Fail("cannot bind /dev/log");
  }
}

std::string SyslogRecorder::WaitFor(const std::string& text, milliseconds limit) {
  const auto end = Clock::now() + limit;
  char message[2048];
  while (WaitReady(fd_.Get(), POLLIN, end)) {
    const ssize_t length = recv(fd_.Get(), message, sizeof(message), 0);
    if (length <= 0) break;
    std::string whole(message, static_cast<size_t>(length));
    if (whole.find(text) != std::string::npos) return whole;
  }
  return "";
}

}  // namespace sim
