#include "util/notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "util/time_mark.h"

namespace {

constexpr size_t kMessageSize = CUTIL_NOTIFY_STATUS_SIZE + 64;
// Delay before a report is sent again after the socket was full.
constexpr int64_t kRetryUs = 100'000;
constexpr int64_t kNever = INT64_MAX;

struct Notifier {
  int fd;  // -1: no service manager
  sockaddr_un address;
  socklen_t address_length;
  int64_t watchdog_us;  // the manager's timeout; 0: none
  char status[CUTIL_NOTIFY_STATUS_SIZE];
  // Monotonic times at which the reports are due; kNever if there is none.
  int64_t ready_us;
  int64_t alive_us;
  int64_t status_us;
  int64_t next_status_us;  // earliest time of the next status line
};

Notifier g_notifier = {.fd = -1,
                       .address = {},
                       .address_length = 0,
                       .watchdog_us = 0,
                       .status = {},
                       .ready_us = kNever,
                       .alive_us = kNever,
                       .status_us = kNever,
                       .next_status_us = 0};

thread_local bool t_reports = false;

// Returns false if `path` is not absolute or too long.
bool SetAddress(const char* path) {
  const size_t length = strlen(path);
  sockaddr_un* address = &g_notifier.address;
  if (path[0] != '/' || length >= sizeof(address->sun_path)) return false;
  address->sun_family = AF_UNIX;
  memcpy(address->sun_path, path, length);
  g_notifier.address_length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
  return true;
}

// WATCHDOG_PID is not checked: if the limit is meant for another process, the manager ignores the
// messages of this one.
int64_t WatchdogUs() {
  const char* limit = getenv("WATCHDOG_USEC");
  return limit == nullptr ? 0 : std::max<int64_t>(strtoll(limit, nullptr, 10), 0);
}

// Returns false if the socket is full. Any other error counts as sent.
bool Send(const char* message) {
  const auto* address = reinterpret_cast<const sockaddr*>(&g_notifier.address);
  const ssize_t sent = sendto(g_notifier.fd, message, strlen(message), MSG_DONTWAIT | MSG_NOSIGNAL,
                              address, g_notifier.address_length);
  return sent >= 0 || errno != EAGAIN;
}

void SendReady(int64_t now_us) {
  g_notifier.ready_us = Send("READY=1") ? kNever : now_us + kRetryUs;
}

void SendAlive(int64_t now_us) {
  char message[kMessageSize];
  const auto limit_us = static_cast<long long>(g_notifier.watchdog_us);
  snprintf(message, sizeof(message), "WATCHDOG=1\nEXTEND_TIMEOUT_USEC=%lld", limit_us);
  g_notifier.alive_us = now_us + (Send(message) ? g_notifier.watchdog_us / 2 : kRetryUs);
}

void SendStatus(int64_t now_us) {
  char message[kMessageSize];
  snprintf(message, sizeof(message), "STATUS=%s", g_notifier.status);
  const bool is_sent = Send(message);
  g_notifier.status_us = is_sent ? kNever : now_us + kRetryUs;
  if (is_sent) g_notifier.next_status_us = now_us + CUTIL_NOTIFY_STATUS_US;
}

}  // namespace

void CUTIL_NotifyInit() {
  const char* path = getenv("NOTIFY_SOCKET");
  if (path != nullptr && SetAddress(path)) {
    g_notifier.fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    g_notifier.watchdog_us = WatchdogUs();
    t_reports = g_notifier.fd >= 0;
    if (g_notifier.watchdog_us > 0) g_notifier.alive_us = CUTIL_MonotonicUs();
  }
  for (const char* variable : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
    unsetenv(variable);
}

bool CUTIL_NotifyIsOn() {
  return t_reports;
}

void CUTIL_NotifyReady() {
  if (!t_reports) return;
  g_notifier.ready_us = CUTIL_MonotonicUs();
  CUTIL_NotifyServe();
}

void CUTIL_NotifyStopping() {
  if (t_reports) Send("STOPPING=1");
}

void CUTIL_NotifyStatus(const char* text) {
  if (!t_reports) return;
  char* status = g_notifier.status;
  snprintf(status, sizeof(g_notifier.status), "%s", text);
  // A line feed would start another assignment, and the manager accepts valid UTF-8 only.
  std::replace_if(
      status, status + strlen(status), [](char c) { return c < ' ' || c > '~'; }, '?');
  g_notifier.status_us = g_notifier.next_status_us;
  CUTIL_NotifyServe();
}

void CUTIL_NotifyServe() {
  if (!t_reports) return;
  const int64_t now_us = CUTIL_MonotonicUs();
  if (now_us >= g_notifier.ready_us) SendReady(now_us);
  if (now_us >= g_notifier.alive_us) SendAlive(now_us);
  if (now_us >= g_notifier.status_us) SendStatus(now_us);
}

int64_t CUTIL_NotifyWaitUs() {
  if (!t_reports) return kNever;
  const int64_t next_us =
      std::min({g_notifier.ready_us, g_notifier.alive_us, g_notifier.status_us});
  return next_us == kNever ? kNever : std::max<int64_t>(next_us - CUTIL_MonotonicUs(), 0);
}
