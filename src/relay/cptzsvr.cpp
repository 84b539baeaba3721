#include "relay/cptzsvr.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "net/readable.h"
#include "net/tcp_socket.h"
#include "net/udp_socket.h"
#include "util/sleep.h"

namespace {

constexpr int kNoSocket = -1;
constexpr int64_t kUsPerS = 1'000'000;
constexpr int64_t kNsPerUs = 1'000;
constexpr int64_t kAcceptPauseUs = kUsPerS;

// --- Accept ------------------------------------------------------------------------------------

// Whether a failed accept was the fault of that one connection. Anything else (no descriptor or
// memory left, above all) lasts, and trying again at once would only spin.
bool IsPassing(int error) {
  constexpr std::array kPassing = {EAGAIN,       EINTR,       ECONNABORTED, EPROTO,
                                   ENETDOWN,     ENONET,      ENOPROTOOPT,  EHOSTDOWN,
                                   EHOSTUNREACH, ENETUNREACH, EOPNOTSUPP};
  return std::find(kPassing.begin(), kPassing.end(), error) != kPassing.end();
}

void LeaveListenerAlone(CPTZSVR* self, int error) {
  fprintf(stderr, "[%s] error, reason(accept, %s)\n", "CPTZSVR_Accept", strerror(error));
  self->accept_again_us = CUTIL_MonotonicUs() + kAcceptPauseUs;
}

void Admit(CPTZSVR* self, int client, const sockaddr_in& peer) {
  char address[INET_ADDRSTRLEN];
  inet_ntop(AF_INET, &peer.sin_addr, address, sizeof(address));
  int* const slot = std::find_if(std::begin(self->clients), std::end(self->clients),
                                 [](int held) { return held < 0; });
  if (slot == std::end(self->clients)) {
    fprintf(stderr, "[%s] error, reason(%d clients, %s refused)\n", "CPTZSVR_Accept",
            CPTZSVR_MAX_CLIENTS, address);
    close(client);
    return;
  }
  *slot = client;
  fprintf(stderr, "CONNECT[%d, %s] : %d\n", self->port, address, client);
}

int CPTZSVR_Accept(CPTZSVR* self, int us) {
  if (self->listener == kNoSocket) return -1;
  if (!CPTZSVR_IsAccepting(self)) return 0;
  const int64_t end = CUTIL_MonotonicUs() + us;
  int64_t left = us;
  do {
    if (ZSK_WaitReadable(self->listener, left) <= 0) return 0;
    sockaddr_in peer = {};
    socklen_t peer_length = sizeof(peer);
    const int client =
        accept4(self->listener, reinterpret_cast<sockaddr*>(&peer), &peer_length, SOCK_CLOEXEC);
    if (client >= 0) {
      Admit(self, client, peer);
      return 0;
    }
    if (!IsPassing(errno)) {
      LeaveListenerAlone(self, errno);
      return 0;
    }
    left = end - CUTIL_MonotonicUs();
  } while (left > 0);
  return 0;
}

// --- Recv --------------------------------------------------------------------------------------

using ClientWatch = std::array<pollfd, CPTZSVR_MAX_CLIENTS>;

// Waits for any client; a free slot (-1) is ignored by poll. Returns false when none is ready.
bool WaitForClients(const CPTZSVR* self, int us, ClientWatch* watch) {
  int connected = 0;
  for (size_t i = 0; i < watch->size(); ++i) {
    (*watch)[i] = {.fd = self->clients[i], .events = POLLIN, .revents = 0};
    if (self->clients[i] >= 0) ++connected;
  }
  if (connected == 0) return false;
  const int64_t limit_us = static_cast<int64_t>(us) * connected;
  const timespec limit = {.tv_sec = static_cast<time_t>(limit_us / kUsPerS),
                          .tv_nsec = static_cast<long>(limit_us % kUsPerS * kNsPerUs)};
  return ppoll(watch->data(), watch->size(), &limit, nullptr) > 0;
}

int CPTZSVR_Recv(CPTZSVR* self, void* buf, int us) {
  ClientWatch watch;
  if (!WaitForClients(self, us, &watch)) return -1;
  for (size_t i = 0; i < watch.size(); ++i) {
    if (watch[i].revents == 0) continue;
    const ssize_t received = recv(self->clients[i], buf, CPTZSVR_RECV_MAX, MSG_DONTWAIT);
    if (received > 0) return static_cast<int>(received);
    if (received < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    CPTZSVR_Disconnect(&self->clients[i]);
  }
  return -1;
}

// --- The other slots ---------------------------------------------------------------------------

int CPTZSVR_SendAll(CPTZSVR* self, const void* buf, int len) {
  for (int& client : self->clients) {
    if (client < 0) continue;
    if (ZSK_SendTCPStream(client, buf, len, CPTZSVR_SEND_LIMIT_S) < 0) CPTZSVR_Disconnect(&client);
  }
  return 0;
}

void CPTZSVR_Close(CPTZSVR* self) {
  if (self->listener != kNoSocket) {
    close(self->listener);
    self->listener = kNoSocket;
  }
  for (int& client : self->clients)
    CPTZSVR_Disconnect(&client);
}

}  // namespace

int CPTZSVR_Init(CPTZSVR* self, int16_t port) {
  self->listener = kNoSocket;
  std::fill(std::begin(self->clients), std::end(self->clients), kNoSocket);
  self->port = port;
  self->Close = CPTZSVR_Close;
  self->Accept = CPTZSVR_Accept;
  self->Recv = CPTZSVR_Recv;
  self->SendAll = CPTZSVR_SendAll;
  self->accept_again_us = 0;

  const int probe = ZSK_ConnectTCPSocket("127.0.0.1", port);
  if (probe >= 0) {
    close(probe);
    return 0;
  }
  const int listener = ZSK_BindTCPSocketEx(port, ZSK_BIND_REUSEADDR | ZSK_BIND_NODELAY);
  if (listener < 0) {
    fprintf(stderr, "PTZ TCP CONNECTION ERR [%d]\n", listener);
    return -1;
  }
  // A connection that is gone again before it is accepted must not hold the mode.
  ZSK_SetNonBlocking(listener);
  self->listener = listener;
  return 0;
}

void CPTZSVR_Disconnect(int* slot) {
  if (*slot < 0) return;
  fprintf(stderr, "DISCONNECT : %d\n", *slot);
  close(*slot);
  *slot = kNoSocket;
}

bool CPTZSVR_IsAccepting(const CPTZSVR* self) {
  return self->listener != kNoSocket && CUTIL_MonotonicUs() >= self->accept_again_us;
}
