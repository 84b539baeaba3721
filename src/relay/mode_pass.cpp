#include "relay/mode_pass.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "ipc/cicomm.h"
#include "net/udp_socket.h"
#include "relay/cfdevent.h"
#include "serial/serial_io.h"
#include "util/sleep.h"

namespace {

constexpr int kUsPerMs = 1000;

// --- PTZ clients -------------------------------------------------------------------------------

void ServePtzClients(ModePass* self) {
  CPTZSVR* server = self->context->ptz_server;
  if (server == nullptr) return;
  server->Accept(server, 0);
  const int count = server->Recv(server, self->ptz_buffer, 0);
  if (count > 0) SerialSend(self->context->serial, self->ptz_buffer, count);
}

// --- Waiting -----------------------------------------------------------------------------------

// Everything that can end the wait of a pass.
struct Sources {
  std::array<pollfd, CFDEVENT_MAX_FDS + 1 + CPTZSVR_MAX_CLIENTS> list;
  nfds_t count;
};

void Watch(Sources* sources, int fd) {
  if (fd >= 0) sources->list[sources->count++] = {.fd = fd, .events = POLLIN, .revents = 0};
}

void CollectSources(const Rs232Context& context, Sources* sources) {
  sources->count = 0;
  for (int i = 0; i < context.events->reg_count; ++i)
    Watch(sources, context.events->fds[i]);
  const CPTZSVR* server = context.ptz_server;
  if (server == nullptr) return;
  if (CPTZSVR_IsAccepting(server)) Watch(sources, server->listener);
  for (const int client : server->clients)
    Watch(sources, client);
}

// Waits on every source at once: a PTZ client or a signal ends the wait as well as the event
// set does. Returns true when the event set has something to serve.
bool WaitForWork(const ModePass* self) {
  Sources sources;
  CollectSources(*self->context, &sources);
  if (poll(sources.list.data(), sources.count, MODE_PASS_WAIT_MS) <= 0) return false;
  CFDEVENT* events = self->context->events;
  return events->Wait(events, 0) == 0;
}

bool IsReady(const ModePass* self, int fd) {
  CFDEVENT* events = self->context->events;
  return events->IsSet(events, fd) == 0;
}

// --- The daemon's UDP socket -------------------------------------------------------------------

void ServeUdp(ModePass* self) {
  const ssize_t length = recvfrom(self->context->udp_socket, self->udp_buffer,
                                  sizeof(self->udp_buffer), MSG_DONTWAIT, nullptr, nullptr);
  if (length < RS232_UDP_CODE_SIZE) return;
  switch (LoadLe16(self->udp_buffer)) {
    case RS232_UDP_WRITE:
      SerialSend(self->context->serial, self->udp_buffer + RS232_UDP_CODE_SIZE,
                 static_cast<int>(length) - RS232_UDP_CODE_SIZE);
      break;
    case RS232_UDP_STOP:
      *self->context->stop = 1;
      break;
    default:
      break;
  }
}

// --- The command channel -----------------------------------------------------------------------

void ServeCommand(ModePass* self) {
  CICOMM* channel = self->context->command;
  int command = 0;
  if (channel->Recv(channel, &command) < 0) return;
  if (command != CICOMM_PCMD_PTZ) {
    if (self->hooks->command != nullptr) self->hooks->command(self->mode, command);
    return;
  }
  const CameraControl control = CameraControlDecode(channel->GetData(channel));
  if (control.target == CAMERA_CONTROL_TARGET && self->hooks->camera_control != nullptr) {
    self->hooks->camera_control(self->mode, control);
  }
}

// --- The serial line ---------------------------------------------------------------------------

void SendSerialData(ModePass* self, int count) {
  SerialDataDatagram* datagram = &self->serial_data;
  memcpy(datagram->magic, SERIAL_DATA_MAGIC, sizeof(datagram->magic));
  datagram->count.Set(static_cast<uint32_t>(count));
  datagram->kind.Set(SERIAL_DATA_KIND);
  ZSK_SendLocalUDPData(self->context->udp_socket, SERIAL_DATA_PORT, datagram,
                       SERIAL_DATA_HEADER_SIZE + count);
}

void ServeSerial(ModePass* self) {
  uint8_t* bytes = self->serial_data.bytes;
  const ssize_t count = read(self->context->serial, bytes, SERIAL_DATA_MAX);
  if (count <= 0) {
    // A line that hung up is ready for ever and has nothing: keep the pace of an idle pass.
    CUTIL_SleepUs(static_cast<int64_t>(MODE_PASS_WAIT_MS) * kUsPerMs);
    return;
  }
  const int length = static_cast<int>(count);
  CPTZSVR* server = self->context->ptz_server;
  if (server != nullptr) server->SendAll(server, bytes, length);
  if (self->hooks->serial_bytes != nullptr) {
    self->hooks->serial_bytes(self->mode, {bytes, static_cast<size_t>(count)});
  }
  SerialTraceIfEnabled(SERIAL_TRACE_RECV, bytes, length);
  if (self->hooks->sends_serial_data) SendSerialData(self, length);
}

// --- The slots ---------------------------------------------------------------------------------

int RunOnce(ModePass* self) {
  if (*self->context->stop != 0) return 1;
  if (self->hooks->periodic != nullptr) self->hooks->periodic(self->mode);
  ServePtzClients(self);
  if (!WaitForWork(self)) return 0;
  CICOMM* channel = self->context->command;
  if (IsReady(self, self->context->udp_socket)) ServeUdp(self);
  if (IsReady(self, channel->GetSocket(channel))) ServeCommand(self);
  if (IsReady(self, self->context->serial)) ServeSerial(self);
  return 0;
}

void Run(ModePass* self) {
  while (RunOnce(self) == 0) {
  }
}

}  // namespace

void ModePassInit(ModePass* self, const Rs232Context* context, const ModeHooks* hooks, void* mode) {
  self->context = context;
  self->hooks = hooks;
  self->mode = mode;
  self->serial_data = {};
  self->RunOnce = RunOnce;
  self->Run = Run;
}
