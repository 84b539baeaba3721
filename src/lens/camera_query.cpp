#include "lens/camera_query.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "net/ipv4_address.h"
#include "net/udp_socket.h"
#include "util/bytes.h"
#include "util/time_mark.h"

namespace {

// Channel of get_focus_value; too large for the stack.
CICOMM g_focus_channel;

// An unbound socket would accept answers from any network of the device.
bool BindToLoopback(int fd) {
  const sockaddr_in any_port = ZSK_Ipv4Address(INADDR_LOOPBACK, 0);
  if (bind(fd, ZSK_Generic(any_port), sizeof(any_port)) == 0) return true;
  fprintf(stderr, "[%s] error, reason(bind, %s)\n", "CameraAsk", strerror(errno));
  return false;
}

void SendRecord(CICOMM* channel, CameraQueryKind kind, int32_t setting) {
  uint8_t record[CAMERA_QUERY_SIZE] = {};
  StoreLe32(record + CAMERA_QUERY_KIND_AT, static_cast<uint32_t>(kind));
  StoreLe32(record + CAMERA_QUERY_SETTING_AT, static_cast<uint32_t>(setting));
  channel->Send(channel, CAMERA_QUERY, CAMD_QUERY_PORT, record, CAMERA_QUERY_SIZE);
}

// Waits for a packet; a signal does not end the wait.
bool AwaitPacket(CICOMM* channel) {
  constexpr int64_t kUsPerMs = 1000;
  const int64_t end_us = CUTIL_MonotonicUs() + CAMERA_QUERY_TIMEOUT_MS * kUsPerMs;
  int64_t left_ms = CAMERA_QUERY_TIMEOUT_MS;
  while (left_ms >= 0) {
    const int result = channel->Wait(channel, static_cast<int>(left_ms));
    if (result == 0) return true;
    if (result != CICOMM_WAIT_FAILED || errno != EINTR) return false;
    left_ms = (end_us - CUTIL_MonotonicUs()) / kUsPerMs;
  }
  return false;
}

bool ReceiveAnswer(CICOMM* channel, CameraQueryKind kind) {
  if (!AwaitPacket(channel)) return false;
  int command = 0;
  if (channel->Recv(channel, &command) < 0) return false;
  const uint32_t answered = LoadLe32(channel->GetData(channel) + CAMERA_QUERY_KIND_AT);
  return command == CAMERA_QUERY && answered == static_cast<uint32_t>(kind);
}

}  // namespace

CameraAnswer CameraAsk(CICOMM* channel, CameraQueryKind kind) {
  if (CICOMM_Init(channel, -1) != 0) return CameraAnswer::kNoChannel;
  if (!BindToLoopback(channel->GetSocket(channel))) {
    channel->Close(channel);
    return CameraAnswer::kNoChannel;
  }
  // The kernel may report an answer as readable and then drop it for a bad checksum; receiving must
  // not block.
  ZSK_SetNonBlocking(channel->GetSocket(channel));
  SendRecord(channel, kind, 0);
  const bool answered = ReceiveAnswer(channel, kind);
  channel->Close(channel);
  return answered ? CameraAnswer::kValid : CameraAnswer::kNone;
}

void CameraSetExposure(CICOMM* channel, int32_t setting) {
  SendRecord(channel, CAMERA_QUERY_SET_EXPOSURE, setting);
}

uint16_t get_focus_value() {
  if (CameraAsk(&g_focus_channel, CAMERA_QUERY_FOCUS) != CameraAnswer::kValid) {
    return FOCUS_VALUE_NONE;
  }
  return LoadLe16(g_focus_channel.GetData(&g_focus_channel) + CAMERA_QUERY_MEASURE_AT);
}
