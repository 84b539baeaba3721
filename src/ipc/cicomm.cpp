#include "ipc/cicomm.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "net/deadline.h"
#include "net/ipv4_address.h"
#include "net/readable.h"
#include "net/udp_socket.h"

namespace {

constexpr int kSendLimitS = 3;
constexpr int kMsPerS = 1000;
constexpr int64_t kUsPerMs = 1000;

bool PayloadMissing(const char* name, const void* data, int size) {
  if (size == 0 || data != nullptr) return false;
  fprintf(stderr, "[%s] error, reason(size[%d], buff[%x])\n", name, size, 0U);
  return true;
}

void FillPacket(CicommPacket* packet, int command, int port_field, const void* data, int size) {
  packet->header = {};
  packet->header.magic.Set(CICOMM_MAGIC);
  packet->header.version.Set(CICOMM_VERSION);
  packet->header.command.Set(static_cast<uint32_t>(command));
  packet->header.port.Set(static_cast<uint32_t>(port_field));
  packet->header.size.Set(static_cast<uint32_t>(size));
  if (size > 0) memcpy(packet->data, data, static_cast<size_t>(size));
}

void PrintShortSend(const char* name, int result, int wanted) {
  fprintf(stderr, "[%s] error, reason(SendTo %d vs %d)\n", name, result, wanted);
}

void CICOMM_Close(CICOMM* self) {
  if (self->socket < 0) return;
  close(self->socket);
  self->socket = -1;
}

int CICOMM_GetSocket(const CICOMM* self) {
  return self->socket;
}

int CICOMM_Wait(CICOMM* self, int ms) {
  if (self->socket < 0) return CICOMM_WAIT_NO_SOCKET;
  const int ready = ZSK_WaitReadable(self->socket, ms * kUsPerMs);
  if (ready == 0) return CICOMM_WAIT_TIMEOUT;
  return ready > 0 ? 0 : CICOMM_WAIT_FAILED;
}

int CICOMM_Send(CICOMM* self, int command, int port, const void* data, int size) {
  constexpr char kName[] = "CICOMM_Send";
  if (PayloadMissing(kName, data, size)) return -1;
  if (size < 0 || size > CICOMM_MAX_DATA) {
    fprintf(stderr, "[%s] error, reason(size over %d vs %d)\n", kName, size, CICOMM_MAX_DATA);
    return -2;
  }
  FillPacket(&self->send, command, self->port, data, size);
  const int wanted = CICOMM_HEADER_SIZE + size;
  const int sent = SendTo(self->socket, port, &self->send, wanted, kSendLimitS);
  if (sent != wanted) {
    PrintShortSend(kName, sent, wanted);
    return -4;
  }
  return wanted;
}

// Clears the bytes that an earlier, longer datagram left behind this one.
void ForgetEarlierBytes(CICOMM* self, int received) {
  if (received < self->filled) {
    memset(reinterpret_cast<uint8_t*>(&self->recv) + received, 0,
           static_cast<size_t>(self->filled - received));
  }
  self->filled = received;
}

int CICOMM_Recv(CICOMM* self, int* command_out) {
  self->received = 0;
  if (self->socket < 0) return -1;
  sockaddr_in sender = {};
  const int received =
      ZSK_RecvUDPDataEx(self->socket, &self->recv, CICOMM_PACKET_SIZE, &sender, 0, 0, 0);
  if (received <= 0) {
    fprintf(stderr, "[%s] error, reason(recvfrom)\n", "CICOMM_Recv");
    return -1;
  }
  ForgetEarlierBytes(self, received);
  self->received = received;
  CicommHeader* header = &self->recv.header;
  if (header->port.GetSigned() < 0) {
    header->port.Set(ntohs(sender.sin_port));
  }
  if (command_out != nullptr) *command_out = header->command.GetSigned();
  return header->size.GetSigned();
}

CicommHeader* CICOMM_GetHeader(CICOMM* self) {
  return &self->recv.header;
}

uint8_t* CICOMM_GetData(CICOMM* self) {
  return self->recv.data;
}

}  // namespace

int CICOMM_Init(CICOMM* self, int port) {
  self->socket = -1;
  self->port = port;
  self->recv = {};
  self->filled = 0;
  self->received = 0;
  self->Close = CICOMM_Close;
  self->GetSocket = CICOMM_GetSocket;
  self->Wait = CICOMM_Wait;
  self->Send = CICOMM_Send;
  self->Recv = CICOMM_Recv;
  self->GetHeader = CICOMM_GetHeader;
  self->GetData = CICOMM_GetData;
  self->socket = port > 0 ? ZSK_OpenLocalUDPSSocket(port) : ZSK_OpenLocalUDPCSocket();
  if (self->socket < 0) {
    fprintf(stderr, "[%s] error, reason(ZSK_OpenLocalUDPSSocket)\n", "CICOMM_Init");
    CICOMM_Close(self);
    return -1;
  }
  return 0;
}

int CICOMM_SendCommand(int socket, int command, int port_field, int port, const void* data,
                       int size, int timeout_ms) {
  constexpr char kName[] = "CICOMM_SendCommand";
  if (PayloadMissing(kName, data, size)) return -1;
  const int fd = socket < 0 ? ZSK_OpenLocalUDPCSocket() : socket;
  if (fd < 0) {
    fprintf(stderr, "[%s] error, reason(ZSK_OpenLocalUDPCSocket)\n", kName);
    return -3;
  }
  const bool representable = size >= 0 && size <= INT_MAX - CICOMM_HEADER_SIZE;
  const int wanted = representable ? CICOMM_HEADER_SIZE + size : 0;
  auto* packet =
      static_cast<CicommPacket*>(representable ? calloc(1, static_cast<size_t>(wanted)) : nullptr);
  int sent = -3;
  if (packet == nullptr) {
    fprintf(stderr, "[%s] error, reason(ZSK_OpenLocalUDPCSocket)\n", kName);
  } else {
    FillPacket(packet, command, port_field, data, size);
    sent = SendTo(fd, port, packet, wanted, timeout_ms / kMsPerS);
    if (sent != wanted) PrintShortSend(kName, sent, wanted);
  }
  if (socket < 0) close(fd);
  free(packet);
  return sent;
}

int SendTo(int socket, int port, const void* buf, int len, int timeout_s) {
  if (buf == nullptr || len == 0) return -1;
  const ZskDeadline deadline = ZSK_DeadlineIn(timeout_s);
  if (socket < 0) return -1;
  if (len < 0) return len;

  // The all-zero address reaches the local receiver through the loopback interface.
  const sockaddr_in to = ZSK_Ipv4Address(INADDR_ANY, port);
  const uint8_t* next = static_cast<const uint8_t*>(buf);
  int remaining = len;
  while (true) {
    const int sent = ZSK_SendUDPData(socket, next, remaining, &to);
    if (sent > 0) {
      next += sent;
      remaining -= sent;
    } else if (sent == 0) {
      return -1;
    } else if (errno == EINTR || errno == EAGAIN) {
      usleep(1);
    } else {
      fprintf(stderr, "[SendTo] Error Number : %d, Error String %s\n", errno, strerror(errno));
      return -1;
    }
    if (ZSK_DeadlinePassed(deadline)) return -1;
    if (remaining == 0) return len;
  }
}
