#include "net/tcp_socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "net/deadline.h"
#include "net/ipv4_address.h"

namespace {

// Fixed line numbers in the two messages of a failed stream send; part of the message text.
constexpr char kSendStreamName[] = "ZSK_SendTCPStream";
constexpr int kNoDataLine = 693;
constexpr int kSendCriticalLine = 727;

// Send buffer of the listeners, bytes.
constexpr int kListenerSendBuffer = 4194304;

// The scope of an IPv6 listener is the index of this interface.
constexpr char kScopeInterface[] = "eth0";

int CloseAndFail(int fd) {
  close(fd);
  return -1;
}

// Resolves `host` and stores its first IPv4 address in host order. Returns 0 or the resolver's
// error code.
int ResolveIpv4(const char* host, in_addr_t* address) {
  addrinfo hints = {};
  hints.ai_family = AF_INET;
  addrinfo* results = nullptr;
  const int error = getaddrinfo(host, nullptr, &hints, &results);
  if (error != 0) return error;
  *address = ntohl(reinterpret_cast<const sockaddr_in*>(results->ai_addr)->sin_addr.s_addr);
  freeaddrinfo(results);
  return 0;
}

int SetOption(int fd, int level, int option, int value) {
  return setsockopt(fd, level, option, &value, sizeof(value));
}

int Connect(int fd, const sockaddr_in& address) {
  return connect(fd, ZSK_Generic(address), sizeof(address));
}

// Sets the timeout for connect and send on a blocking socket; 0 removes it.
void LimitBlocking(int fd, int seconds) {
  const timeval limit = {.tv_sec = seconds, .tv_usec = 0};
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

// Waits for room in the send buffer, at most until the deadline. The kernel reports a socket as
// writable only once a third of its buffer is free, although a few bytes may fit long before, so
// each poll is short.
void WaitForRoom(int fd, const ZskDeadline& deadline) {
  constexpr int kLongestMs = 20;
  const int left_ms = deadline.set ? ZSK_DeadlineLeftMs(deadline) : kLongestMs;
  pollfd room = {.fd = fd, .events = POLLOUT, .revents = 0};
  poll(&room, 1, std::min(left_ms, kLongestMs));
}

// --- The listeners with a large send buffer --------------------------------------------------

void EnlargeSendBuffer(int fd) {
  if (SetOption(fd, SOL_SOCKET, SO_SNDBUF, kListenerSendBuffer) != 0) {
    printf("new setsockopt error : %d\n", errno);
  }
  int size = 0;
  socklen_t length = sizeof(size);
  if (getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, &length) != 0) {
    printf("new setsockopt error : %d, %s\n", errno, strerror(errno));
  }
}

int MakeListener(const sockaddr* address, socklen_t address_length) {
  const int fd = socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    puts("[TSER_InitServer] error while get socket for middle connection.");
    return -1;
  }
  if (SetOption(fd, SOL_SOCKET, SO_REUSEADDR, 1) != 0) {
    puts("setsockopt");
    return CloseAndFail(fd);
  }
  if (bind(fd, address, address_length) != 0) {
    printf("[open_tcp_socket error] while bind tcp socket : %s\n", strerror(errno));
    return CloseAndFail(fd);
  }
  EnlargeSendBuffer(fd);
  if (listen(fd, ZSK_BACKLOG) != 0) {
    puts("[open_tcp_socket error] error while listen");
    return CloseAndFail(fd);
  }
  return fd;
}

int MakeIpv4Listener(int port, in_addr_t host) {
  const sockaddr_in address = ZSK_Ipv4Address(host, port);
  return MakeListener(ZSK_Generic(address), sizeof(address));
}

int MakeIpv6Listener(int port, const in6_addr& host) {
  sockaddr_in6 address = {};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(static_cast<uint16_t>(port));
  address.sin6_addr = host;
  address.sin6_scope_id = if_nametoindex(kScopeInterface);
  return MakeListener(reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

}  // namespace

int ZSK_ConnectTCPSocket(const char* host, int port) {
  constexpr char kName[] = "ZSK_ConnectTCPSocket";
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    fprintf(stderr, "new [%s/socket] Error Number : %d, Error String : %s\n", kName, errno,
            strerror(errno));
    return -1;
  }
  in_addr_t address = INADDR_NONE;
  if (const int error = ResolveIpv4(host, &address); error != 0) {
    fprintf(stderr, "new [%s/getaddrinfo] Error Number : %d, Error String : %s\n", kName, error,
            gai_strerror(error));
    return CloseAndFail(fd);
  }
  // If the listener no longer accepts, connect would otherwise block for minutes.
  LimitBlocking(fd, ZSK_CONNECT_TIMEOUT_S);
  if (Connect(fd, ZSK_Ipv4Address(address, port)) != 0) {
    fprintf(stderr, "new [%s/connect] Error Number : %d, Error String : %s\n", kName, errno,
            strerror(errno));
    return CloseAndFail(fd);
  }
  LimitBlocking(fd, 0);
  return fd;
}

int ZSK_BindTCPSocketEx(int port, int options) {
  constexpr char kName[] = "ZSK_BindTCPSocketEx";
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    fprintf(stderr, "[%s] error while get socket for middle connection.", kName);
    return -1;
  }
  if ((options & ZSK_BIND_REUSEADDR) != 0 && SetOption(fd, SOL_SOCKET, SO_REUSEADDR, 1) != 0) {
    fprintf(stderr, "[%s] error setsockopt", kName);
    return CloseAndFail(fd);
  }
  if ((options & ZSK_BIND_NODELAY) != 0 && SetOption(fd, IPPROTO_TCP, TCP_NODELAY, 1) != 0) {
    fprintf(stderr, "[%s] error setsockopt 'TCP_NODELAY' : %s\n", kName, strerror(errno));
    return CloseAndFail(fd);
  }
  const sockaddr_in any = ZSK_Ipv4Address(INADDR_ANY, port);
  if (bind(fd, ZSK_Generic(any), sizeof(any)) != 0) {
    fprintf(stderr, "[%s] error while bind tcp socket : %s\n", kName, strerror(errno));
    return CloseAndFail(fd);
  }
  if (listen(fd, ZSK_BACKLOG) != 0) {
    fprintf(stderr, "[%s] error while listen", kName);
    return CloseAndFail(fd);
  }
  return fd;
}

int ZSK_SendTCPNow(int fd, const void* buf, int len) {
  while (true) {
    const ssize_t sent = send(fd, buf, static_cast<size_t>(len), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0) return static_cast<int>(sent);
    if (sent == 0) {
      printf("[%s, %d] Error ZSKE_TCP_SEND_CRITICAL\n", kSendStreamName, kSendCriticalLine);
      return ZSKE_TCP_SEND_CRITICAL;
    }
    if (errno == EAGAIN) return 0;
    if (errno != EINTR) {
      printf("[%s/send] Error Number : %d, Error String %s\n", kSendStreamName, errno,
             strerror(errno));
      return ZSKE_TCP_SEND_CRITICAL;
    }
  }
}

int ZSK_SendTCPStream(int fd, const void* buf, int len, int timeout_s) {
  if (buf == nullptr || len == 0) {
    printf("[%s, %d] Error %d, %x\n", kSendStreamName, kNoDataLine, len,
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(buf)));
    return ZSKE_TCP_SEND_NO_DATA;
  }
  const ZskDeadline deadline = ZSK_DeadlineIn(timeout_s);
  if (fd < 0) return ZSKE_TCP_SEND_BAD_FD;
  if (len < 0) return len;

  const uint8_t* next = static_cast<const uint8_t*>(buf);
  int remaining = len;
  while (true) {
    const int sent = ZSK_SendTCPNow(fd, next, remaining);
    if (sent < 0) return sent;
    if (sent == 0) WaitForRoom(fd, deadline);
    next += sent;
    remaining -= sent;
    if (ZSK_DeadlinePassed(deadline)) return ZSKE_TCP_SEND_TIMEOUT;
    if (remaining == 0) return len;
  }
}

int ZSK_ASyncConnectTCPSocket(int* fd_out, const char* host, int port) {
  constexpr char kName[] = "ZSK_ASyncConnectTCPSocket";
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    fprintf(stderr, "[%s/socket] Error Number : %d, Error String : %s\n", kName, errno,
            strerror(errno));
    return -1;
  }
  in_addr_t address = INADDR_NONE;
  if (ZSK_IsDottedQuad(host, static_cast<int>(strlen(host))) != 0) {
    address = ntohl(inet_addr(host));
  } else if (const int error = ResolveIpv4(host, &address); error != 0) {
    fprintf(stderr, "[%s/getaddrinfo] Error Number : %d, Error String : %s\n", kName, error,
            gai_strerror(error));
    return CloseAndFail(fd);
  }
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0) {
    fprintf(stderr, "[%s/gethostbyname] Error fcntl(..., F_GETFL) (%s)\n", kName, strerror(errno));
    return CloseAndFail(fd);
  }
  if (fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
    fprintf(stderr, "[%s/gethostbyname] Error fcntl(..., F_SETFL) (%s)\n", kName, strerror(errno));
    return CloseAndFail(fd);
  }
  const int connected = Connect(fd, ZSK_Ipv4Address(address, port));
  const int error = errno;
  *fd_out = fd;
  if (connected == 0) return 0;
  if (error == EINPROGRESS) return 1;
  fprintf(stderr, "[%s/gethostbyname] Error connecting on ZSK_ASyncConnectTCPSocket %d - %s\n",
          kName, error, strerror(error));
  return CloseAndFail(fd);
}

int ZSK_IsDottedQuad(const char* text, int len) {
  if (len <= 0) return 0;
  int dots = 0;
  int digits = 0;
  for (int i = 0; i < len; ++i) {
    if (text[i] == '.') {
      ++dots;
      digits = 0;
    } else if (text[i] < '0' || text[i] > '9' || ++digits > 3) {
      return 0;
    }
  }
  return dots == 3 ? 1 : 0;
}

int ZSK_BindTCPSocket(int port) {
  return MakeIpv4Listener(port, INADDR_ANY);
}

int ZSK_BindTCPSocketLocal(int port, int local) {
  return MakeIpv4Listener(port, local != 0 ? INADDR_LOOPBACK : INADDR_ANY);
}

int ZSK_BindTCP6Socket(int port) {
  return MakeIpv6Listener(port, in6addr_any);
}

int ZSK_BindTCP6SocketLocal(int port, int loopback) {
  return MakeIpv6Listener(port, loopback != 0 ? in6addr_loopback : in6addr_any);
}
