#include "relay/mode_pass.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "ipc/cicomm.h"
#include "net/udp_socket.h"
#include "relay/cfdevent.h"
#include "serial/serial_io.h"
#include "serial/serial_port.h"
#include "util/notify.h"
#include "util/sleep.h"

namespace {

constexpr int kPaceMs = static_cast<int>(MODE_PASS_PACE_US / 1000);
// In place of a number of clients.
constexpr int kNoServer = -1;
constexpr int kNothingReported = -2;

bool IsToStop(const ModePass* self) {
  return self->context->stop->load(std::memory_order_relaxed) != 0;
}

// --- PTZ clients -------------------------------------------------------------------------------

bool IsReady(const pollfd& source) {
  return source.revents != 0;
}

// Whether the line takes bytes. One that is lost takes all: they are lost with it.
bool HasRoom(const LineSource& line) {
  pollfd room = {.fd = line.fd, .events = POLLOUT, .revents = 0};
  return line.fd < 0 || poll(&room, 1, 0) != 0;
}

// Returns true when the line got bytes, which takes as long as it takes them.
bool ServePtzClients(ModePass* self, std::span<const pollfd, CPTZSVR_SOURCES> sources) {
  CPTZSVR* server = self->context->ptz_server;
  if (server == nullptr) return false;
  CPTZSVR_SendQueued(server, sources);
  const bool is_ready = std::any_of(sources.begin(), sources.end(), IsReady);
  if (!is_ready && !self->clients_held) return false;
  if (IsReady(sources[CPTZSVR_LISTENER_SOURCE])) server->Accept(server, 0);
  self->clients_held = !HasRoom(self->line);
  if (self->clients_held) return false;
  const int count = server->Recv(server, self->ptz_buffer, 0);
  if (count > 0) SerialSend(self->line.fd, self->ptz_buffer, count);
  return count > 0;
}

// --- The service manager -----------------------------------------------------------------------

// Reports model, mode, line and clients whenever one of them has changed.
void ReportStatus(ModePass* self) {
  if (!CUTIL_NotifyIsOn()) return;
  const CPTZSVR* server = self->context->ptz_server;
  const int clients = server == nullptr ? kNoServer : CPTZSVR_ClientCount(server);
  const bool line = self->line.fd >= 0;
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

// What a wait is over: the PTZ server's sources, then the event set's.
struct Sources {
  std::array<pollfd, CPTZSVR_SOURCES + CFDEVENT_MAX_FDS> list;
  size_t count;

  std::span<pollfd, CPTZSVR_SOURCES> Ptz() { return std::span(list).first<CPTZSVR_SOURCES>(); }
  std::span<pollfd> Events() {
    return std::span(list).subspan(CPTZSVR_SOURCES, count - CPTZSVR_SOURCES);
  }
};

void CollectSources(const ModePass* self, Sources* sources) {
  const Rs232Context& context = *self->context;
  const bool is_held = self->clients_held && self->line.fd >= 0;
  if (context.ptz_server != nullptr) {
    CPTZSVR_Watch(context.ptz_server, !is_held, sources->Ptz());
  } else {
    std::fill_n(sources->list.begin(), CPTZSVR_SOURCES,
                pollfd{.fd = -1, .events = 0, .revents = 0});
  }
  sources->count = CPTZSVR_SOURCES + static_cast<size_t>(context.events->reg_count);
  const int* fd = context.events->fds;
  for (pollfd& source : sources->Events()) {
    const int room = is_held && *fd == self->line.fd ? POLLOUT : 0;
    source = {.fd = *fd++, .events = static_cast<short>(POLLIN | room), .revents = 0};
  }
}

int64_t WaitLimitUs(const ModePass* self, int64_t periodic_us) {
  const CPTZSVR* server = self->context->ptz_server;
  return std::min({periodic_us, LineSourceWaitLimitUs(self->line), CUTIL_NotifyWaitUs(),
                   server == nullptr ? MODE_PASS_NO_WORK : CPTZSVR_WaitLimitUs(server)});
}

// Sleeps until a source is ready, `limit_us` have passed or the daemon is told to end. SIGTERM is
// held back from the look at the stop flag until the process sleeps, so that none comes unnoticed
// between the two. Returns what poll returns.
int SleepUntilReady(const ModePass* self, Sources* sources, int64_t limit_us) {
  constexpr int64_t kUsPerS = 1'000'000;
  constexpr int64_t kNsPerUs = 1'000;
  const timespec limit = {.tv_sec = static_cast<time_t>(limit_us / kUsPerS),
                          .tv_nsec = static_cast<long>(limit_us % kUsPerS * kNsPerUs)};
  sigset_t terminate;
  sigset_t usual;
  sigemptyset(&terminate);
  sigaddset(&terminate, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &terminate, &usual);
  int ready = 0;
  if (!IsToStop(self)) {
    const bool is_endless = limit_us == MODE_PASS_NO_WORK;
    ready = ppoll(sources->list.data(), sources->count, is_endless ? nullptr : &limit, &usual);
  }
  pthread_sigmask(SIG_SETMASK, &usual, nullptr);
  return ready;
}

// A wait or a read that fails does so at once, and may go on failing: the next pass must not come
// at once as well.
void PauseAfterFailure() {
  CUTIL_SleepUs(MODE_PASS_PACE_US);
}

// Where the wait over all sources failed it told nothing: each PTZ source is worth a try then, and
// the event set is waited for by itself, at the pace of periodic work.
void WaitForEventsAlone(ModePass* self, Sources* sources) {
  for (pollfd& source : sources->Ptz())
    source.revents = source.events;
  CFDEVENT* events = self->context->events;
  if (events->Wait(events, kPaceMs) == CFDEVENT_WAIT_FAILED) PauseAfterFailure();
}

// Waits on every source at once: a PTZ client or a signal ends the wait as well as the event set
// does. What is ready then is told by `sources` and by the event set.
void WaitForWork(ModePass* self, int64_t periodic_us, Sources* sources) {
  // The limit comes first: a listener that is left alone until now is watched or waited for.
  const int64_t limit_us = WaitLimitUs(self, periodic_us);
  CollectSources(self, sources);
  const bool has_failed = SleepUntilReady(self, sources, limit_us) < 0 && errno != EINTR;
  CFDEVENT_SetReady(self->context->events, sources->Events());
  if (has_failed) WaitForEventsAlone(self, sources);
}

// What came while the line took a client's bytes comes before that client's next.
void LookAtEventsAgain(ModePass* self, Sources* sources) {
  const auto events = sources->Events();
  if (poll(events.data(), events.size(), 0) >= 0) {
    CFDEVENT_SetReady(self->context->events, events);
  }
}

bool IsSet(const ModePass* self, int fd) {
  CFDEVENT* events = self->context->events;
  return fd >= 0 && events->IsSet(events, fd) == 0;
}

// --- The daemon's UDP socket -------------------------------------------------------------------

void ServeUdp(ModePass* self) {
  const ssize_t length = recvfrom(self->context->udp_socket, self->udp_buffer,
                                  sizeof(self->udp_buffer), MSG_DONTWAIT, nullptr, nullptr);
  if (length < 0) PauseAfterFailure();
  if (length < RS232_UDP_CODE_SIZE) return;
  switch (LoadLe16(self->udp_buffer)) {
    case RS232_UDP_WRITE:
      SerialSend(self->line.fd, self->udp_buffer + RS232_UDP_CODE_SIZE,
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

// Anybody on the device may send datagrams to the port. Only what is marked as a command may move
// anything, whatever number its bytes happen to hold.
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
  Sources sources;
  WaitForWork(self, periodic_us, &sources);
  if (ServePtzClients(self, sources.Ptz())) LookAtEventsAgain(self, &sources);
  CICOMM* channel = self->context->command;
  if (IsSet(self, self->context->udp_socket)) ServeUdp(self);
  if (IsSet(self, channel->GetSocket(channel))) ServeCommand(self);
  if (IsSet(self, self->line.fd)) ServeSerial(self);
  return 0;
}

void Run(ModePass* self) {
  CUTIL_NotifyReady();
  while (RunOnce(self) == 0) {
  }
}

}  // namespace

void ModePassInit(ModePass* self, const Rs232Context* context, const ModeHooks* hooks, void* mode) {
  self->context = context;
  self->hooks = hooks;
  self->mode = mode;
  self->serial_data = {};
  LineSourceInit(&self->line, *context);
  self->clients_held = false;
  self->reported_clients = kNothingReported;
  self->reported_line = false;
  self->stray_line_us = 0;
  self->RunOnce = RunOnce;
  self->Run = Run;
}
