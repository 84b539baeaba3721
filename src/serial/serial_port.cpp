#include "serial/serial_port.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>

#include "util/conf_file.h"
#include "util/notify.h"
#include "util/sleep.h"
#include "util/time_mark.h"

std::atomic<SerialPort*> g_serial_port = nullptr;

namespace {

char g_device_path[256];

SerialPort g_port = {.fd = -1,
                     .saved = {},
                     .Close = nullptr,
                     .Write = nullptr,
                     .Read = nullptr,
                     .tells_transmitter = false,
                     .has_unsent = false,
                     .stop_seen_us = 0};

// --- Line settings ---------------------------------------------------------------------------

speed_t SpeedCode(int32_t baud_rate) {
  for (const SerialSpeed& row : SERIAL_SPEEDS) {
    if (row.baud_rate == baud_rate) return row.code;
  }
  return SERIAL_DEFAULT_SPEED.code;
}

tcflag_t SizeFlag(int32_t data_bits) {
  switch (data_bits) {
    case 5:
      return CS5;
    case 6:
      return CS6;
    case 7:
      return CS7;
    default:
      return CS8;
  }
}

tcflag_t ParityFlags(int32_t parity) {
  if (parity == 1) return PARENB;
  if (parity == 2) return PARENB | PARODD;
  return 0;
}

termios RawSettings(const SerialLine& line) {
  termios settings = {};
  const tcflag_t parity = ParityFlags(line.parity);
  const tcflag_t stop = line.stop_bits == 2 ? CSTOPB : 0;
  settings.c_cflag = SizeFlag(line.data_bits) | parity | stop | CLOCAL | CREAD;
  settings.c_iflag = parity == 0 ? IGNPAR : 0;
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  cfsetispeed(&settings, SpeedCode(line.baud_rate));
  cfsetospeed(&settings, SpeedCode(line.baud_rate));
  return settings;
}

// --- Waiting until the transmitter is empty ----------------------------------------------------

constexpr int64_t kUsPerS = 1'000'000;
// Longest character: start bit, 8 data bits, parity, two stop bits.
constexpr int64_t kBitsPerCharacter = 12;
// Tolerated lag of a driver behind the line before the wait is given up.
constexpr int64_t kDrainMarginUs = 200'000;
// Total limit of all waits once the stop flag is set.
constexpr int64_t kDrainAfterStopUs = 1'000'000;
// Longest wait for a device's FIFO to empty before the line settings change: 64 characters at 1200
// bits per second.
constexpr int64_t kFifoDrainUs = 700'000;
// Interval at which the driver's drain call is interrupted.
constexpr long kDrainLookNs = 50'000'000;
// Poll interval of the output queue if there is no timer.
constexpr int64_t kQueueLookUs = 1'000;
// Bytes that a device may still hold after its queue is empty.
constexpr int kFifoSize = 128;

// Returns the current speed of the device, bits per second.
int64_t PresentBaudRate(int fd) {
  termios settings;
  if (tcgetattr(fd, &settings) != 0) return SERIAL_DEFAULT_SPEED.baud_rate;
  const speed_t code = cfgetospeed(&settings);
  for (const SerialSpeed& row : SERIAL_SPEEDS) {
    if (row.code == code) return row.baud_rate;
  }
  return SERIAL_DEFAULT_SPEED.baud_rate;
}

// Limit of a wait: the time for everything queued on the device.
struct DrainLimit {
  SerialPort* port;
  int64_t begin_us;
  int64_t length_us;
};

int QueuedBytes(int fd) {
  int queued = 0;
  return ioctl(fd, TIOCOUTQ, &queued) == 0 ? queued : -1;
}

int64_t LineTimeUs(int fd, int characters) {
  return characters * kBitsPerCharacter * kUsPerS / PresentBaudRate(fd);
}

DrainLimit DrainLimitFor(SerialPort* self, int fd, int written, int64_t begin_us) {
  const int characters = std::max({QueuedBytes(fd), written, 0});
  return {
      .port = self, .begin_us = begin_us, .length_us = LineTimeUs(fd, characters) + kDrainMarginUs};
}

// All waits share one limit, counted from the first that sees the stop flag, because several frames
// may still be sent.
bool IsStopOver(SerialPort* self) {
  if (g_rs232_stop.load(std::memory_order_relaxed) == 0) return false;
  const int64_t now_us = CUTIL_MonotonicUs();
  int64_t seen_us = 0;
  return !self->stop_seen_us.compare_exchange_strong(seen_us, now_us) &&
         now_us - seen_us >= kDrainAfterStopUs;
}

bool IsOver(const DrainLimit& limit) {
  return IsStopOver(limit.port) || CUTIL_MonotonicUs() - limit.begin_us >= limit.length_us;
}

enum class Transmitter { kEmpty, kBusy, kUnknown };

Transmitter QueryTransmitter(int fd) {
  unsigned int status = 0;
  if (ioctl(fd, TIOCSERGETLSR, &status) == 0) {
    return status != 0 ? Transmitter::kEmpty : Transmitter::kBusy;
  }
  return errno == EINTR ? Transmitter::kBusy : Transmitter::kUnknown;
}

// The drain functions return false if the wait was given up.
bool DrainByStatus(SerialPort* self, int fd, int written) {
  const DrainLimit limit = DrainLimitFor(self, fd, written, CUTIL_MonotonicUs());
  while (QueryTransmitter(fd) == Transmitter::kBusy) {
    if (IsOver(limit)) return false;
    CUTIL_NotifyServe();
  }
  return true;
}

void OnDrainTimer(int /*signal*/) {}

// Without SA_RESTART: the signal must interrupt the drain call.
void HandleDrainSignal() {
  struct sigaction action = {};
  action.sa_handler = OnDrainTimer;
  sigaction(SERIAL_DRAIN_SIGNAL, &action, nullptr);
}

// Creates a timer that sends SERIAL_DRAIN_SIGNAL to the calling thread. Returns false on failure.
bool MakeDrainTimer(timer_t* timer) {
  sigevent event = {};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = SERIAL_DRAIN_SIGNAL;
  event._sigev_un._tid = gettid();
  return timer_create(CLOCK_MONOTONIC, &event, timer) == 0;
}

// Returns the calling thread's timer, created with the first call, or null if that fails.
timer_t* DrainTimer() {
  thread_local timer_t timer;
  thread_local bool has_timer = false;
  if (!has_timer) has_timer = MakeDrainTimer(&timer);
  return has_timer ? &timer : nullptr;
}

// Starts the timer, or stops it if `period_ns` is 0. The timer is periodic, because a single signal
// might arrive just before the call it has to interrupt.
void SetDrainTimer(timer_t timer, long period_ns) {
  const timespec period = {.tv_sec = 0, .tv_nsec = period_ns};
  const itimerspec setting = {.it_interval = period, .it_value = period};
  timer_settime(timer, 0, &setting, nullptr);
}

bool DrainByQueue(SerialPort* self, int fd, int written) {
  const DrainLimit limit = DrainLimitFor(self, fd, written, CUTIL_MonotonicUs());
  while (QueuedBytes(fd) > 0) {
    if (IsOver(limit)) return false;
    CUTIL_SleepUs(kQueueLookUs);
  }
  CUTIL_SleepUs(LineTimeUs(fd, std::clamp(written, 0, kFifoSize)));
  return true;
}

// For devices that cannot report an empty shift register (USB adapters, ptys): waits in the
// driver's drain call. That call has no timeout, so an adapter held by flow control would block the
// daemon forever. A timer interrupts it, so that the wait can be given up.
bool DrainByDriver(SerialPort* self, int fd, int written) {
  timer_t* const timer = DrainTimer();
  if (timer == nullptr) return DrainByQueue(self, fd, written);
  const int64_t begin_us = CUTIL_MonotonicUs();
  SetDrainTimer(*timer, kDrainLookNs);
  bool is_waiting = tcdrain(fd) != 0 && errno == EINTR;
  if (is_waiting) {
    const DrainLimit limit = DrainLimitFor(self, fd, written, begin_us);
    while (is_waiting && !IsOver(limit)) {
      CUTIL_NotifyServe();
      is_waiting = tcdrain(fd) != 0 && errno == EINTR;
    }
  }
  SetDrainTimer(*timer, 0);
  return !is_waiting;
}

// Queries a driver no more once it could not report. Returns false if the wait was given up.
bool WaitTransmitterEmpty(SerialPort* self, int fd, int written) {
  const Transmitter state = self->tells_transmitter ? QueryTransmitter(fd) : Transmitter::kUnknown;
  if (state == Transmitter::kEmpty) return true;
  if (state == Transmitter::kBusy) return DrainByStatus(self, fd, written);
  if (self->fd == fd) self->tells_transmitter = false;
  return DrainByDriver(self, fd, written);
}

// --- Writing -------------------------------------------------------------------------------------

// While one thread is in `write`, the terminal refuses another non-blocking write, and that frame
// would be lost. The lock covers only the microseconds of the call. Closing takes it as well, so
// that no frame goes to another file that is opened under the same descriptor.
std::atomic_flag g_is_in_use = ATOMIC_FLAG_INIT;

void LockWrites() {
  while (g_is_in_use.test_and_set(std::memory_order_acquire))
    sched_yield();
}

void UnlockWrites() {
  g_is_in_use.clear(std::memory_order_release);
}

// --- The slots ---------------------------------------------------------------------------------

// After a wait was given up, the unsent bytes must not be sent at another speed. Discards the
// driver's queue; the few bytes in the device's FIFO cannot be discarded, so it waits for them.
void DiscardUnsent(int fd) {
  tcflush(fd, TCOFLUSH);
  const int64_t latest_us = CUTIL_MonotonicUs() + kFifoDrainUs;
  while (QueryTransmitter(fd) == Transmitter::kBusy && CUTIL_MonotonicUs() < latest_us)
    CUTIL_NotifyServe();
}

// Close blocks for up to half a minute for bytes in the driver, and some drivers cannot discard
// them. The timer's signal ends that wait.
void CloseWithoutWait(int fd) {
  timer_t* const timer = DrainTimer();
  if (timer != nullptr) SetDrainTimer(*timer, kDrainLookNs);
  close(fd);
  if (timer != nullptr) SetDrainTimer(*timer, 0);
}

void Close(SerialPort* self) {
  LockWrites();
  const int fd = self->fd.exchange(-1);
  UnlockWrites();
  if (fd < 0) return;
  const bool has_unsent = self->has_unsent;
  if (has_unsent) DiscardUnsent(fd);
  tcsetattr(fd, TCSANOW, &self->saved);
  if (has_unsent) {
    CloseWithoutWait(fd);
  } else {
    close(fd);
  }
}

int Write(SerialPort* self, const void* buffer, int length) {
  LockWrites();
  const int fd = self->fd;
  const ssize_t written = fd < 0 ? -1 : write(fd, buffer, static_cast<size_t>(length));
  UnlockWrites();
  if (fd >= 0) self->has_unsent = !WaitTransmitterEmpty(self, fd, static_cast<int>(written));
  return static_cast<int>(written);
}

// A failed poll takes no time; without a pause the caller would spin.
constexpr int64_t kFailedWaitPauseUs = 1'000;

int Read(SerialPort* self, void* buffer, int length, int timeout_ms) {
  const int fd = self->fd;
  if (fd < 0) return SERIAL_READ_CLOSED;
  if (buffer == nullptr) return SERIAL_READ_NO_BUFFER;
  pollfd source = {.fd = fd, .events = POLLIN, .revents = 0};
  const int ready = poll(&source, 1, timeout_ms);
  const bool has_failed = ready < 0 || (source.revents & POLLNVAL) != 0;
  if (has_failed) CUTIL_SleepUs(kFailedWaitPauseUs);
  if (has_failed || ready == 0) return SERIAL_READ_TIMEOUT;
  return static_cast<int>(read(fd, buffer, static_cast<size_t>(length)));
}

}  // namespace

int SerialPortOpen(SerialPort* self, const char* path, const SerialLine& line) {
  self->fd = -1;
  self->saved = {};
  self->Close = Close;
  self->Write = Write;
  self->Read = Read;
  self->tells_transmitter = true;
  self->has_unsent = false;
  self->stop_seen_us = 0;
  const termios settings = RawSettings(line);
  HandleDrainSignal();
  setvbuf(stdout, nullptr, _IONBF, 0);
  const int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return -1;
  tcgetattr(fd, &self->saved);
  tcflush(fd, TCIFLUSH);
  tcsetattr(fd, TCSANOW, &settings);
  self->fd = fd;
  return 0;
}

SerialLine SerialLineOf(const Rs232Settings& settings) {
  return {.baud_rate = settings.baud_rate,
          .data_bits = settings.data_bits,
          .parity = settings.parity,
          .stop_bits = settings.stop_bits};
}

int OpenRS232(Rs232Context* context, const SerialLine& line) {
  g_device_path[0] = '\0';
  CUTIL_GetConfValue(SERIAL_CAPABILITIES_PATH, SERIAL_DEVICE_KEY, g_device_path,
                     sizeof(g_device_path));
  const bool is_open = SerialPortOpen(&g_port, g_device_path, line) == 0;
  g_serial_port = is_open ? &g_port : nullptr;
  context->serial = g_port.fd;
  return context->serial;
}

const char* OpenedDevicePath() {
  return g_device_path;
}

bool IsRS232Usable(const Rs232Context& context, const SerialLine& line) {
  const termios asked = RawSettings(line);
  termios found = {};
  if (tcgetattr(context.serial, &found) != 0) return false;
  if (found.c_iflag != asked.c_iflag || found.c_oflag != asked.c_oflag ||
      found.c_lflag != asked.c_lflag) {
    return false;
  }
  char none = 0;
  return read(context.serial, &none, 0) == 0 || errno == EAGAIN || errno == EINTR;
}

int CloseRS232(Rs232Context* context) {
  SerialPort* port = g_serial_port.exchange(nullptr);
  if (port != nullptr) port->Close(port);
  context->serial = -1;
  return 0;
}
