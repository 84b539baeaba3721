// minimal_relay PORT DEVICE READ-SIZE [UDP-PORT]: a minimal relay between a serial line and TCP
// clients, as a baseline for the others.
//
// One poll loop over line, listener and clients; blocking sends, no framing, no messages, no
// handling of clients that stop reading. With UDP-PORT, each read from the line is also sent there
// as a serial data datagram.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "relay/daemon_datagram.h"

namespace {

constexpr size_t kBufferSize = 4096;
constexpr size_t kLineAt = 0;
constexpr size_t kListenerAt = 1;
constexpr size_t kClientsAt = 2;

std::array<uint8_t, kBufferSize> g_buffer;

[[noreturn]] void Fail(const char* what) {
  perror(what);
  exit(EXIT_FAILURE);
}

sockaddr_in Loopback(const char* port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(strtoul(port, nullptr, 10)));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int OpenLine(const char* device) {
  const int fd = open(device, O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios settings;
  if (fd < 0 || tcgetattr(fd, &settings) != 0) Fail(device);
  cfmakeraw(&settings);
  cfsetspeed(&settings, B115200);
  tcsetattr(fd, TCSANOW, &settings);
  return fd;
}

int Listen(const char* port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  const sockaddr_in address = Loopback(port);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) Fail(port);
  if (listen(fd, SOMAXCONN) != 0) Fail(port);
  return fd;
}

void WriteAll(int fd, size_t size) {
  for (size_t at = 0; at < size;) {
    const ssize_t written = write(fd, g_buffer.data() + at, size - at);
    if (written < 0) return;
    at += static_cast<size_t>(written);
  }
}

// Sends bytes from the line to the local data port.
class DataPort {
 public:
  explicit DataPort(const char* port)
      : fd_(port == nullptr ? -1 : socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
        address_(port == nullptr ? sockaddr_in{} : Loopback(port)) {
    memcpy(datagram_.magic, SERIAL_DATA_MAGIC, sizeof(datagram_.magic));
    datagram_.kind.Set(SERIAL_DATA_KIND);
  }

  void Send(size_t size) {
    if (fd_ < 0) return;
    datagram_.count.Set(static_cast<uint32_t>(size));
    memcpy(datagram_.bytes, g_buffer.data(), size);
    sendto(fd_, &datagram_, SERIAL_DATA_HEADER_SIZE + size, 0,
           reinterpret_cast<const sockaddr*>(&address_), sizeof(address_));
  }

 private:
  int fd_;
  sockaddr_in address_;
  SerialDataDatagram datagram_ = {};
};

void ServeClients(std::vector<pollfd>* sources) {
  for (size_t i = kClientsAt; i < sources->size(); ++i) {
    pollfd& client = (*sources)[i];
    if (client.revents == 0) continue;
    const ssize_t count = read(client.fd, g_buffer.data(), g_buffer.size());
    if (count > 0) {
      WriteAll((*sources)[kLineAt].fd, static_cast<size_t>(count));
    } else {
      close(client.fd);
      client.fd = -1;
    }
  }
  std::erase_if(*sources, [](const pollfd& source) { return source.fd < 0; });
}

void Accept(std::vector<pollfd>* sources) {
  const int client = accept4((*sources)[kListenerAt].fd, nullptr, nullptr, SOCK_CLOEXEC);
  if (client >= 0) sources->push_back({.fd = client, .events = POLLIN, .revents = 0});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return EXIT_FAILURE;
  signal(SIGPIPE, SIG_IGN);
  const size_t read_size = std::min<size_t>(strtoul(argv[3], nullptr, 10), kBufferSize);
  DataPort data(argc > 4 ? argv[4] : nullptr);
  std::vector<pollfd> sources = {{.fd = OpenLine(argv[2]), .events = POLLIN, .revents = 0},
                                 {.fd = Listen(argv[1]), .events = POLLIN, .revents = 0}};
  while (poll(sources.data(), sources.size(), -1) > 0) {
    if (sources[kLineAt].revents != 0) {
      const ssize_t count = read(sources[kLineAt].fd, g_buffer.data(), read_size);
      if (count <= 0) break;
      for (size_t i = kClientsAt; i < sources.size(); ++i)
        WriteAll(sources[i].fd, static_cast<size_t>(count));
      data.Send(static_cast<size_t>(count));
    }
    const bool is_called = sources[kListenerAt].revents != 0;
    ServeClients(&sources);
    if (is_called) Accept(&sources);
  }
  return EXIT_SUCCESS;
}
