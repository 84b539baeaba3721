#include "relay/mode_pass.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "ipc/cicomm.h"
#include "net/udp_socket.h"
#include "relay/cfdevent.h"
#include "serial/serial_io.h"
#include "util/sleep.h"

namespace {

constexpr int kPaceMs = static_cast<int>(MODE_PASS_PACE_US / 1000);

// --- PTZ clients -------------------------------------------------------------------------------

bool IsReady(const pollfd& source) {
  return source.revents != 0;
}

// Whether the line takes bytes. One that is lost takes all: they are lost with it.
bool HasRoom(const LineSource& line) {
  pollfd room = {.fd = line.fd, .events = POLLOUT, .revents = 0};
  return line.fd < 0 || poll(&room, 1, 0) != 0;
}

// A sequence of frames may have taken a while since the last wait: what clients sent meanwhile
// comes before the next datagram and command, so they are looked at afresh.
void LookAtPtzServer(ModePass* self) {
  CPTZSVR_Watch(self->context->ptz_server, true, self->ptz_sources);
  if (poll(self->ptz_sources.data(), self->ptz_sources.size(), 0) >= 0) return;
  for (pollfd& source : self->ptz_sources)  // each is worth a try then
    source.revents = source.events;
}

void ServePtzClients(ModePass* self) {
  self->clients_held = false;
  CPTZSVR* server = self->context->ptz_server;
  if (server == nullptr) return;
  if (!self->ptz_known) LookAtPtzServer(self);
  const auto& sources = self->ptz_sources;
  CPTZSVR_SendQueued(server, sources);
  if (std::none_of(sources.begin(), sources.end(), IsReady)) return;
  server->Accept(server, 0);
  self->clients_held = !HasRoom(self->line);
  if (self->clients_held) return;
  const int count = server->Recv(server, self->ptz_buffer, 0);
  if (count > 0) SerialSend(self->line.fd, self->ptz_buffer, count);
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
  if (context.ptz_server != nullptr) {
    CPTZSVR_Watch(context.ptz_server, !self->clients_held, sources->Ptz());
  } else {
    std::fill_n(sources->list.begin(), CPTZSVR_SOURCES,
                pollfd{.fd = -1, .events = 0, .revents = 0});
  }
  sources->count = CPTZSVR_SOURCES + static_cast<size_t>(context.events->reg_count);
  const int* fd = context.events->fds;
  for (pollfd& source : sources->Events()) {
    const int room = self->clients_held && *fd == self->line.fd ? POLLOUT : 0;
    source = {.fd = *fd++, .events = static_cast<short>(POLLIN | room), .revents = 0};
  }
}

int64_t WaitLimitUs(const ModePass* self, int64_t periodic_us) {
  const CPTZSVR* server = self->context->ptz_server;
  return std::min({periodic_us, LineSourceWaitLimitUs(self->line),
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
  if (*self->context->stop == 0) {
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

// Looks which of the event set's sources are ready; where the wait over all sources failed, these
// are waited for at the pace of periodic work. Returns true when one is.
bool WaitForEvents(ModePass* self) {
  CFDEVENT* events = self->context->events;
  const int result = events->Wait(events, kPaceMs);
  if (result == CFDEVENT_WAIT_FAILED) PauseAfterFailure();
  return result == 0;
}

// Waits on every source at once: a PTZ client or a signal ends the wait as well as the event set
// does. Returns true when the event set has something to serve.
bool WaitForWork(ModePass* self, int64_t periodic_us) {
  // The limit comes first: a listener that is left alone until now is watched or waited for.
  const int64_t limit_us = WaitLimitUs(self, periodic_us);
  Sources sources;
  CollectSources(self, &sources);
  const int ready = SleepUntilReady(self, &sources, limit_us);
  if (ready < 0) return errno != EINTR && WaitForEvents(self);
  const auto events_set = sources.Events();
  const bool is_event = std::any_of(events_set.begin(), events_set.end(), IsReady);
  self->ptz_known = !self->clients_held && !is_event;
  if (self->ptz_known) {
    std::copy_n(sources.list.begin(), CPTZSVR_SOURCES, self->ptz_sources.begin());
  }
  return is_event && WaitForEvents(self);
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
  if (channel->Recv(channel, &command) < 0) {
    PauseAfterFailure();
    return;
  }
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
  if (*self->context->stop != 0) return 1;
  int64_t periodic_us = MODE_PASS_NO_WORK;
  if (self->hooks->periodic != nullptr) {
    periodic_us = self->hooks->periodic(self->mode);
    self->ptz_known = false;
  }
  ServePtzClients(self);
  LineSourceServe(&self->line);
  if (!WaitForWork(self, periodic_us)) return 0;
  CICOMM* channel = self->context->command;
  if (IsSet(self, self->context->udp_socket)) ServeUdp(self);
  if (IsSet(self, channel->GetSocket(channel))) ServeCommand(self);
  if (IsSet(self, self->line.fd)) ServeSerial(self);
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
  LineSourceInit(&self->line, *context);
  self->ptz_known = false;
  self->clients_held = false;
  self->RunOnce = RunOnce;
  self->Run = Run;
}
