#include "relay/mode_pass.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "ipc/cicomm.h"
#include "net/udp_socket.h"
#include "serial/serial_io.h"
#include "serial/serial_port.h"
#include "util/notify.h"
#include "util/sleep.h"
#include "util/time_mark.h"

namespace {

// Special values of `reported_clients`.
constexpr int kNoServer = -1;
constexpr int kNothingReported = -2;

bool IsToStop(const ModePass* self) {
  return self->context->stop->load(std::memory_order_relaxed) != 0;
}

// --- The sources -------------------------------------------------------------------------------

std::span<pollfd, CPTZSVR_SOURCES> PtzSources(ModePass* self) {
  return std::span(self->sources).first<CPTZSVR_SOURCES>();
}

std::span<pollfd> EventSources(ModePass* self) {
  constexpr size_t kFirst = CPTZSVR_SOURCES + 1;
  return std::span(self->sources).subspan(kFirst, self->source_count - kFirst);
}

bool IsReady(const pollfd& source) {
  return source.revents != 0;
}

// Returns true if the event set's descriptor `fd` has input or an error for read to return.
bool HasInput(ModePass* self, int fd) {
  const auto events = EventSources(self);
  return fd >= 0 && std::any_of(events.begin(), events.end(), [fd](const pollfd& source) {
           return source.fd == fd && (source.revents & ~POLLOUT) != 0;
         });
}

// --- PTZ clients -------------------------------------------------------------------------------

// True if writable. A lost line counts as writable; its data is discarded.
bool HasRoom(int serial) {
  pollfd room = {.fd = serial, .events = POLLOUT, .revents = 0};
  const int ready = poll(&room, 1, 0);
  return serial < 0 || ready > 0 || (ready < 0 && errno != EINTR);
}

// Returns true if a client's bytes were written to the line, which may have taken some time.
bool ServePtzClients(ModePass* self) {
  CPTZSVR* server = self->context->ptz_server;
  if (server == nullptr) return false;
  const auto sources = PtzSources(self);
  CPTZSVR_SendQueued(server, sources);
  const bool is_ready = std::any_of(sources.begin(), sources.end(), IsReady);
  if (!is_ready && !self->client_backpressure) return false;
  const bool accepts = IsReady(sources[CPTZSVR_LISTENER_SOURCE]);
  if (accepts) server->Accept(server, 0);
  // Clients that were not polled may have input: try them all.
  if (accepts || self->client_backpressure) {
    for (pollfd& source : sources)
      source.revents |= POLLIN;
  }
  self->client_backpressure = !HasRoom(self->context->serial);
  if (self->client_backpressure) return false;
  const int count =
      CPTZSVR_RecvReady(server, self->ptz_buffer, sources.first<CPTZSVR_MAX_CLIENTS>());
  if (count > 0) SerialSend(SERIAL_ONE_PORT, self->ptz_buffer, count);
  return count > 0;
}

// --- The service manager -----------------------------------------------------------------------

// Reports model, mode, line state and number of clients when the line state or the number changes.
void ReportStatus(ModePass* self) {
  if (!CUTIL_NotifyIsOn()) return;
  const CPTZSVR* server = self->context->ptz_server;
  const int clients = server == nullptr ? kNoServer : CPTZSVR_ClientCount(server);
  const bool line = self->context->serial >= 0;
  if (clients == self->reported_clients && line == self->reported_line) return;
  self->reported_clients = clients;
  self->reported_line = line;
  char ptz[sizeof("PTZ clients: 10")] = "no PTZ server";
  if (server != nullptr) snprintf(ptz, sizeof(ptz), "PTZ clients: %d", clients);
  char text[CUTIL_NOTIFY_STATUS_SIZE];
  snprintf(text, sizeof(text), "%s, %s; %s %s; %s", self->context->settings->model,
           self->hooks->name, OpenedDevicePath(), line ? "open" : "lost", ptz);
  CUTIL_NotifyStatus(text);
}

// --- Waiting -----------------------------------------------------------------------------------

// Collects the poll sources of the PTZ server, the stop event and the event set.
void CollectSources(ModePass* self) {
  const Rs232Context& context = *self->context;
  const bool is_held = self->client_backpressure && self->context->serial >= 0;
  const auto ptz = PtzSources(self);
  if (context.ptz_server != nullptr) {
    CPTZSVR_Watch(context.ptz_server, !is_held, ptz);
  } else {
    std::fill(ptz.begin(), ptz.end(), pollfd{.fd = -1, .events = 0, .revents = 0});
  }
  self->sources[CPTZSVR_SOURCES] = {.fd = g_rs232_stop_event, .events = POLLIN, .revents = 0};
  self->source_count = CPTZSVR_SOURCES + 1 + static_cast<size_t>(context.events->reg_count);
  const int* fd = context.events->fds;
  for (pollfd& source : EventSources(self)) {
    const int room = is_held && *fd == self->context->serial ? POLLOUT : 0;
    source = {.fd = *fd++, .events = static_cast<short>(POLLIN | room), .revents = 0};
  }
}

int64_t WaitLimitUs(const ModePass* self, int64_t periodic_us) {
  constexpr int64_t kBlindUs = 1'000'000;  // SIGTERM may arrive just before the wait
  const CPTZSVR* server = self->context->ptz_server;
  return std::min({periodic_us, g_rs232_stop_event < 0 ? kBlindUs : MODE_PASS_NO_WORK,
                   LineSourceWaitLimitUs(self->line), CUTIL_NotifyWaitUs(),
                   server == nullptr ? MODE_PASS_NO_WORK : CPTZSVR_WaitLimitUs(server)});
}

// A wait or read that fails returns at once and may keep failing; without a pause the loop would
// spin.
void PauseAfterFailure() {
  CUTIL_SleepUs(MODE_PASS_PACE_US);
}

// Events that arrived while a client's bytes were written are served before the client's next
// bytes.
void RepollEvents(ModePass* self) {
  const auto events = EventSources(self);
  poll(events.data(), events.size(), 0);
}

// After a failed poll the results are unknown. Tries every PTZ source, and polls the event set
// alone, because the whole list may exceed the number of descriptors that this process may poll.
void TrySources(ModePass* self) {
  PauseAfterFailure();
  for (pollfd& source : PtzSources(self))
    source.revents = source.events;
  RepollEvents(self);
}

// Waits for all sources in one poll.
void WaitForWork(ModePass* self, int64_t periodic_us) {
  constexpr int64_t kUsPerS = 1'000'000;
  constexpr int64_t kNsPerUs = 1'000;
  // Compute the limit first: if the accept back-off ends in between, the listener is polled.
  const int64_t limit_us = WaitLimitUs(self, periodic_us);
  CollectSources(self);
  const timespec limit = {.tv_sec = static_cast<time_t>(limit_us / kUsPerS),
                          .tv_nsec = static_cast<long>(limit_us % kUsPerS * kNsPerUs)};
  const bool is_endless = limit_us == MODE_PASS_NO_WORK;
  const int ready =
      ppoll(self->sources, self->source_count, is_endless ? nullptr : &limit, nullptr);
  if (ready < 0 && errno != EINTR) TrySources(self);
}

// --- The daemon's UDP socket -------------------------------------------------------------------

void ServeUdp(ModePass* self) {
  const ssize_t length = recvfrom(self->context->udp_socket, self->udp_buffer,
                                  sizeof(self->udp_buffer), MSG_DONTWAIT, nullptr, nullptr);
  if (length < 0) PauseAfterFailure();
  if (length < RS232_UDP_CODE_SIZE) return;
  switch (LoadLe16(self->udp_buffer)) {
    case RS232_UDP_WRITE:
      SerialSend(SERIAL_ONE_PORT, self->udp_buffer + RS232_UDP_CODE_SIZE,
                 static_cast<int>(length) - RS232_UDP_CODE_SIZE);
      break;
    case RS232_UDP_STOP:
      self->context->stop->store(1, std::memory_order_relaxed);
      break;
    default:
      break;
  }
}

// --- The command channel -----------------------------------------------------------------------

// Any process of the device may send datagrams to this port. Only a packet with the magic number of
// a command may have an effect.
bool IsPacket(CICOMM* channel) {
  return channel->received >= CICOMM_HEADER_SIZE &&
         channel->GetHeader(channel)->magic.Get() == CICOMM_MAGIC;
}

void ReportStray(ModePass* self, int length) {
  constexpr int64_t kLineEveryUs = 1'000'000;
  const int64_t now_us = CUTIL_MonotonicUs();
  if (now_us < self->stray_line_us) return;
  self->stray_line_us = now_us + kLineEveryUs;
  fprintf(stderr, "[%s] error, reason(datagram of %d bytes is no command)\n", "ModePass", length);
}

void ServeCommand(ModePass* self) {
  CICOMM* channel = self->context->command;
  int command = 0;
  const int size = channel->Recv(channel, &command);
  if (channel->received == 0) {
    PauseAfterFailure();
    return;
  }
  if (!IsPacket(channel)) {
    ReportStray(self, channel->received);
    return;
  }
  if (size < 0) return;
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
  const int length = LineSourceRead(&self->line, bytes, SERIAL_DATA_MAX);
  if (length == 0) return;
  CPTZSVR* server = self->context->ptz_server;
  if (server != nullptr) server->SendAll(server, bytes, length);
  if (self->hooks->serial_bytes != nullptr) {
    self->hooks->serial_bytes(self->mode, {bytes, static_cast<size_t>(length)});
  }
  SerialTraceIfEnabled(SERIAL_TRACE_RECV, bytes, length);
  if (self->hooks->sends_serial_data) SendSerialData(self, length);
}

// --- The slots ---------------------------------------------------------------------------------

int RunOnce(ModePass* self) {
  if (IsToStop(self)) return 1;
  int64_t periodic_us = MODE_PASS_NO_WORK;
  if (self->hooks->periodic != nullptr) periodic_us = self->hooks->periodic(self->mode);
  LineSourceServe(&self->line);
  ReportStatus(self);
  CUTIL_NotifyServe();
  WaitForWork(self, periodic_us);
  if (ServePtzClients(self)) RepollEvents(self);
  CICOMM* channel = self->context->command;
  if (HasInput(self, self->context->udp_socket)) ServeUdp(self);
  if (HasInput(self, channel->GetSocket(channel))) ServeCommand(self);
  if (HasInput(self, self->context->serial)) ServeSerial(self);
  return 0;
}

void Run(ModePass* self) {
  CUTIL_NotifyReady();
  while (RunOnce(self) == 0) {
  }
}

}  // namespace

void ModePassInit(ModePass* self, Rs232Context* context, const ModeHooks* hooks, void* mode) {
  self->context = context;
  self->hooks = hooks;
  self->mode = mode;
  self->serial_data = {};
  LineSourceInit(&self->line, context);
  self->source_count = 0;
  self->client_backpressure = false;
  self->reported_clients = kNothingReported;
  self->reported_line = false;
  self->stray_line_us = 0;
  self->RunOnce = RunOnce;
  self->Run = Run;
}
