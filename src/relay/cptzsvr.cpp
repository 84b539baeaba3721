#include "relay/cptzsvr.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
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
#include "util/time_mark.h"

namespace {

constexpr int kNoSocket = -1;
constexpr int64_t kUsPerS = 1'000'000;
constexpr int64_t kNsPerUs = 1'000;
constexpr int64_t kAcceptBackoffUs = kUsPerS;
constexpr int64_t kSendTimeoutUs = CPTZSVR_SEND_TIMEOUT_S * kUsPerS;

void CloseClient(CPTZSVR* self, int slot) {
  CPTZSVR_Disconnect(&self->clients[slot]);
  SendQueueClear(&self->queues[slot]);
  self->read_closed[slot] = false;
}

// --- Accept ------------------------------------------------------------------------------------

// Returns true if only this one connection failed. Any other error, above all a lack of descriptors
// or memory, lasts, and an immediate retry would spin.
bool IsPassing(int error) {
  constexpr std::array kPassing = {EAGAIN,       EINTR,       ECONNABORTED, EPROTO,
                                   ENETDOWN,     ENONET,      ENOPROTOOPT,  EHOSTDOWN,
                                   EHOSTUNREACH, ENETUNREACH, EOPNOTSUPP};
  return std::find(kPassing.begin(), kPassing.end(), error) != kPassing.end();
}

// Returns true if there is a listener and accept is not backing off.
bool IsAccepting(const CPTZSVR* self) {
  return self->listener != kNoSocket && CUTIL_MonotonicUs() >= self->accept_backoff_until_us;
}

void BackOffAccept(CPTZSVR* self, int error) {
  fprintf(stderr, "[%s] error, reason(accept, %s)\n", "CPTZSVR_Accept", strerror(error));
  self->accept_backoff_until_us = CUTIL_MonotonicUs() + kAcceptBackoffUs;
}

// Bounds the cost of a client that vanishes or stops reading. Options that the kernel refuses are
// skipped.
void LimitClient(int client) {
  constexpr int kVanishMs =
      (CPTZSVR_KEEPALIVE_IDLE_S + CPTZSVR_KEEPALIVE_INTERVAL_S * CPTZSVR_KEEPALIVE_PROBES) * 1000;
  constexpr struct {
    int level, option, value;
  } kOptions[] = {
      {SOL_SOCKET, SO_SNDBUF, CPTZSVR_SEND_BUFFER},
      {SOL_SOCKET, SO_KEEPALIVE, 1},
      {IPPROTO_TCP, TCP_KEEPIDLE, CPTZSVR_KEEPALIVE_IDLE_S},
      {IPPROTO_TCP, TCP_KEEPINTVL, CPTZSVR_KEEPALIVE_INTERVAL_S},
      {IPPROTO_TCP, TCP_KEEPCNT, CPTZSVR_KEEPALIVE_PROBES},
      {IPPROTO_TCP, TCP_USER_TIMEOUT, kVanishMs},
  };
  for (const auto& row : kOptions)
    setsockopt(client, row.level, row.option, &row.value, sizeof(row.value));
}

void AddClient(CPTZSVR* self, int client, const sockaddr_in& peer) {
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
  LimitClient(client);
  *slot = client;
  fprintf(stderr, "CONNECT[%d, %s] : %d\n", self->port, address, client);
}

int CPTZSVR_Accept(CPTZSVR* self, int us) {
  if (self->listener == kNoSocket) return -1;
  if (!IsAccepting(self)) return 0;
  const int64_t end = CUTIL_MonotonicUs() + us;
  int64_t left = us;
  do {
    if (ZSK_WaitReadable(self->listener, left) <= 0) return 0;
    sockaddr_in peer = {};
    socklen_t peer_length = sizeof(peer);
    const int client =
        accept4(self->listener, reinterpret_cast<sockaddr*>(&peer), &peer_length, SOCK_CLOEXEC);
    if (client >= 0) {
      AddClient(self, client, peer);
      return 0;
    }
    if (!IsPassing(errno)) {
      BackOffAccept(self, errno);
      return 0;
    }
    left = end - CUTIL_MonotonicUs();
  } while (left > 0);
  return 0;
}

// --- Recv --------------------------------------------------------------------------------------

int CPTZSVR_Recv(CPTZSVR* self, void* buf, int us) {
  std::array<pollfd, CPTZSVR_MAX_CLIENTS> sources;
  for (size_t i = 0; i < sources.size(); ++i)  // poll ignores a free slot (-1)
    sources[i] = {.fd = self->clients[i], .events = POLLIN, .revents = 0};
  const int64_t limit_us = static_cast<int64_t>(us) * CPTZSVR_ClientCount(self);
  const timespec limit = {.tv_sec = static_cast<time_t>(limit_us / kUsPerS),
                          .tv_nsec = static_cast<long>(limit_us % kUsPerS * kNsPerUs)};
  if (ppoll(sources.data(), sources.size(), &limit, nullptr) <= 0) return -1;
  return CPTZSVR_RecvReady(self, buf, sources);
}

// --- Sending -------------------------------------------------------------------------------------

// Sends bytes to a client and queues what it cannot accept now. If its queue is not empty,
// everything is queued, to keep the order. Returns false if the client failed or its queue is full.
bool SendOrQueue(CPTZSVR* self, int slot, const uint8_t* bytes, int len) {
  SendQueue* const queue = &self->queues[slot];
  int sent = 0;
  if (queue->count == 0) {
    sent = ZSK_SendTCPNow(self->clients[slot], bytes, len);
    if (sent < 0) return false;
    if (sent == len) return true;
    self->last_progress_us[slot] = CUTIL_MonotonicUs();
  }
  return SendQueuePut(queue, bytes + sent, len - sent);
}

int CPTZSVR_SendAll(CPTZSVR* self, const void* buf, int len) {
  for (int slot = 0; slot < CPTZSVR_MAX_CLIENTS; ++slot) {
    if (self->clients[slot] < 0) continue;
    if (!SendOrQueue(self, slot, static_cast<const uint8_t*>(buf), len)) CloseClient(self, slot);
  }
  return 0;
}

int64_t SendTimeoutLeftUs(const CPTZSVR* self, int slot) {
  return std::max<int64_t>(self->last_progress_us[slot] + kSendTimeoutUs - CUTIL_MonotonicUs(), 0);
}

// Sends queued bytes to a client. The timeout applies only if the client accepts nothing in this
// call, because the daemon itself may have been too busy to send. Returns false if the client
// failed or timed out, or if it has closed its side and its queue is empty.
bool FlushQueue(CPTZSVR* self, int slot) {
  const int taken = SendQueueDrain(&self->queues[slot], self->clients[slot]);
  if (taken > 0) self->last_progress_us[slot] = CUTIL_MonotonicUs();
  const bool is_done = self->read_closed[slot] && self->queues[slot].count == 0;
  return taken >= 0 && SendTimeoutLeftUs(self, slot) > 0 && !is_done;
}

// --- Closing -------------------------------------------------------------------------------------

void CPTZSVR_Close(CPTZSVR* self) {
  if (self->listener != kNoSocket) {
    close(self->listener);
    self->listener = kNoSocket;
  }
  for (int slot = 0; slot < CPTZSVR_MAX_CLIENTS; ++slot)
    CloseClient(self, slot);
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
  self->accept_backoff_until_us = 0;
  std::fill(std::begin(self->queues), std::end(self->queues), SendQueue{});
  std::fill(std::begin(self->last_progress_us), std::end(self->last_progress_us), 0);
  std::fill(std::begin(self->read_closed), std::end(self->read_closed), false);

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
  // If a connection is reset before it is accepted, accept must not block the pass.
  ZSK_SetNonBlocking(listener);
  self->listener = listener;
  return 0;
}

int CPTZSVR_RecvReady(CPTZSVR* self, void* buf,
                      std::span<const pollfd, CPTZSVR_MAX_CLIENTS> sources) {
  for (size_t i = 0; i < sources.size(); ++i) {
    const bool has_input = (sources[i].revents & ~POLLOUT) != 0;
    if (self->clients[i] < 0 || !has_input) continue;
    const ssize_t received = recv(self->clients[i], buf, CPTZSVR_RECV_MAX, MSG_DONTWAIT);
    if (received > 0) return static_cast<int>(received);
    if (received < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (received == 0 && self->queues[i].count > 0) {
      self->read_closed[i] = true;
    } else {
      CloseClient(self, static_cast<int>(i));
    }
  }
  return -1;
}

int CPTZSVR_ClientCount(const CPTZSVR* self) {
  return static_cast<int>(std::count_if(std::begin(self->clients), std::end(self->clients),
                                        [](int held) { return held >= 0; }));
}

void CPTZSVR_Disconnect(int* slot) {
  if (*slot < 0) return;
  fprintf(stderr, "DISCONNECT : %d\n", *slot);
  close(*slot);
  *slot = kNoSocket;
}

void CPTZSVR_Watch(const CPTZSVR* self, bool input, std::span<pollfd, CPTZSVR_SOURCES> sources) {
  for (int slot = 0; slot < CPTZSVR_MAX_CLIENTS; ++slot) {
    const int events = (input && !self->read_closed[slot] ? POLLIN : 0) |
                       (self->queues[slot].count > 0 ? POLLOUT : 0);
    sources[static_cast<size_t>(slot)] = {.fd = events != 0 ? self->clients[slot] : kNoSocket,
                                          .events = static_cast<short>(events),
                                          .revents = 0};
  }
  sources[CPTZSVR_LISTENER_SOURCE] = {
      .fd = IsAccepting(self) ? self->listener : kNoSocket, .events = POLLIN, .revents = 0};
}

int64_t CPTZSVR_WaitLimitUs(const CPTZSVR* self) {
  int64_t limit_us = INT64_MAX;
  if (self->listener != kNoSocket && !IsAccepting(self)) {
    limit_us = std::max<int64_t>(self->accept_backoff_until_us - CUTIL_MonotonicUs(), 0);
  }
  for (int slot = 0; slot < CPTZSVR_MAX_CLIENTS; ++slot) {
    if (self->queues[slot].count > 0) limit_us = std::min(limit_us, SendTimeoutLeftUs(self, slot));
  }
  return limit_us;
}

void CPTZSVR_SendQueued(CPTZSVR* self, std::span<const pollfd, CPTZSVR_SOURCES> sources) {
  for (int slot = 0; slot < CPTZSVR_MAX_CLIENTS; ++slot) {
    if (self->queues[slot].count == 0) continue;
    const bool has_room = (sources[static_cast<size_t>(slot)].revents & POLLOUT) != 0;
    if (!has_room && SendTimeoutLeftUs(self, slot) > 0) continue;
    if (!FlushQueue(self, slot)) CloseClient(self, slot);
  }
}
