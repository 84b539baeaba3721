#include "net/udp_socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "net/ipv4_address.h"
#include "net/readable.h"

namespace {

constexpr int64_t kUsPerS = 1'000'000;

int ReceiveFrom(int fd, void* buf, int len, sockaddr_in* from) {
  socklen_t from_length = sizeof(*from);
  return static_cast<int>(recvfrom(fd, buf, static_cast<size_t>(len), 0,
                                   reinterpret_cast<sockaddr*>(from), &from_length));
}

int OpenDatagramSocket() {
  return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

}  // namespace

int ZSK_OpenLocalUDPSSocket(int port) {
  const int fd = OpenDatagramSocket();
  if (fd < 0) {
    puts("[ZSK_OpenLocalUDPSSocket] local socket error. exit");
    return -1;
  }
  const int on = 1;
  if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0) {
    puts("[ZSK_OpenLocalUDPSSocket] setsockopt error. exit");
    close(fd);
    return -1;
  }
  const sockaddr_in address = ZSK_Ipv4Address(INADDR_LOOPBACK, port);
  if (bind(fd, ZSK_Generic(address), sizeof(address)) != 0) {
    printf("[ZSK_OpenLocalUDPSSocket] local bind error. exit, %d '%s\n", errno, strerror(errno));
    close(fd);
    return -1;
  }
  return fd;
}

int ZSK_OpenLocalUDPCSocket() {
  const int fd = OpenDatagramSocket();
  if (fd < 0) {
    printf("[ZSK_OpenLocalUDPCSocket] local socket error. exit : %d, %s\n", errno, strerror(errno));
    return -1;
  }
  return fd;
}

int ZSK_SendLocalUDPData(int fd, int port, const void* buf, int len) {
  const sockaddr_in to = ZSK_Ipv4Address(INADDR_LOOPBACK, port);
  const int sent = ZSK_SendUDPData(fd, buf, len, &to);
  if (sent == -1) {
    printf("[ZSK_SendLocalUDPData] : error while send message : %s\n", strerror(errno));
  }
  return sent;
}

int ZSK_RecvLocalUDPData(int fd, int port, void* buf, int len) {
  if (ZSK_WaitReadable(fd, 0) <= 0) return 0;
  sockaddr_in from = ZSK_Ipv4Address(INADDR_LOOPBACK, port);
  const int received = ReceiveFrom(fd, buf, len, &from);
  if (received == -1) {
    printf("[ZSK_RecvLocalUDPData] : error while recv message : %s\n", strerror(errno));
  }
  return received;
}

int ZSK_RecvUDPDataTimeout(int fd, void* buf, int len, sockaddr_in* from, long sec, long usec) {
  if (ZSK_WaitReadable(fd, sec * kUsPerS + usec) <= 0) return 0;
  return ReceiveFrom(fd, buf, len, from);
}

int ZSK_RecvUDPDataEx(int fd, void* buf, int len, sockaddr_in* from, long sec, long usec,
                      int wait) {
  if (wait != 0 && ZSK_WaitReadable(fd, sec * kUsPerS + usec) <= 0) return -1;
  return ReceiveFrom(fd, buf, len, from);
}

int ZSK_SendUDPData(int fd, const void* buf, int len, const sockaddr_in* to) {
  return static_cast<int>(
      sendto(fd, buf, static_cast<size_t>(len), 0, ZSK_Generic(*to), sizeof(*to)));
}

int ZSK_SetNonBlocking(int fd) {
  const int flags = fcntl(fd, F_GETFL, 0) | O_NONBLOCK;
  fcntl(fd, F_SETFL, flags);
  return flags;
}

int ZSK_GetSocketBufferSize(int fd, int option) {
  int value = 0;
  socklen_t length = sizeof(value);
  if (getsockopt(fd, SOL_SOCKET, option, &value, &length) != 0) {
    printf("%s error : %d, %s\n", "ZSK_GetSocketBufferSize", errno, strerror(errno));
    return 0;
  }
  return value;
}

int ZSK_SetSocketBufferSize(int fd, int size, int option) {
  const int current = ZSK_GetSocketBufferSize(fd, option);
  while (current < size) {
    if (setsockopt(fd, SOL_SOCKET, option, &size, sizeof(size)) == 0) return size;
    // Rounds towards zero; computed in 64 bits so that no size overflows.
    size = static_cast<int>((static_cast<int64_t>(current) + size) / 2);
  }
  return ZSK_GetSocketBufferSize(fd, option);
}
