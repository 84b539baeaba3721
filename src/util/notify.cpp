#include "util/notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "util/sleep.h"

namespace {

constexpr size_t kMessageSize = CUTIL_NOTIFY_STATUS_SIZE + 64;

struct Notifier {
  int fd;  // -1: nobody to report to
  sockaddr_un address;
  socklen_t address_length;
  int64_t watchdog_us;    // the manager's limit; 0: none
  int64_t next_alive_us;  // monotonic time of the next sign of life
  char status[CUTIL_NOTIFY_STATUS_SIZE];
  bool is_status_due;
  int64_t next_status_us;  // monotonic time before which no status line is sent
};

Notifier g_notifier = {.fd = -1,
                       .address = {},
                       .address_length = 0,
                       .watchdog_us = 0,
                       .next_alive_us = 0,
                       .status = {},
                       .is_status_due = false,
                       .next_status_us = 0};

thread_local bool t_reports = false;

// A path, or with a leading '@' a name in the abstract namespace. Returns false when it is neither.
bool SetAddress(const char* name) {
  const size_t length = strlen(name);
  sockaddr_un* address = &g_notifier.address;
  if ((name[0] != '/' && name[0] != '@') || length >= sizeof(address->sun_path)) return false;
  address->sun_family = AF_UNIX;
  memcpy(address->sun_path, name, length);
  if (name[0] == '@') address->sun_path[0] = '\0';
  g_notifier.address_length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
  return true;
}

// The manager's limit, when it is meant for this process.
int64_t WatchdogUs() {
  const char* limit = getenv("WATCHDOG_USEC");
  const char* pid = getenv("WATCHDOG_PID");
  if (limit == nullptr || (pid != nullptr && atoi(pid) != getpid())) return 0;
  return std::max<int64_t>(strtoll(limit, nullptr, 10), 0);
}

void Send(const char* message) {
  sendto(g_notifier.fd, message, strlen(message), MSG_DONTWAIT | MSG_NOSIGNAL,
         reinterpret_cast<const sockaddr*>(&g_notifier.address), g_notifier.address_length);
}

void SendAlive(int64_t now_us) {
  char message[kMessageSize];
  const auto limit_us = static_cast<long long>(g_notifier.watchdog_us);
  snprintf(message, sizeof(message), "WATCHDOG=1\nEXTEND_TIMEOUT_USEC=%lld", limit_us);
  Send(message);
  g_notifier.next_alive_us = now_us + g_notifier.watchdog_us / 2;
}

void SendStatus(int64_t now_us) {
  char message[kMessageSize];
  snprintf(message, sizeof(message), "STATUS=%s", g_notifier.status);
  Send(message);
  g_notifier.is_status_due = false;
  g_notifier.next_status_us = now_us + CUTIL_NOTIFY_STATUS_US;
}

}  // namespace

void CUTIL_NotifyInit() {
  const char* name = getenv("NOTIFY_SOCKET");
  if (name != nullptr && SetAddress(name)) {
    g_notifier.fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    g_notifier.watchdog_us = WatchdogUs();
    t_reports = g_notifier.fd >= 0;
  }
  for (const char* variable : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
    unsetenv(variable);
}

bool CUTIL_NotifyIsOn() {
  return t_reports;
}

void CUTIL_NotifyReady() {
  if (t_reports) Send("READY=1");
}

void CUTIL_NotifyStopping() {
  if (t_reports) Send("STOPPING=1");
}

void CUTIL_NotifyStatus(const char* text) {
  if (!t_reports) return;
  snprintf(g_notifier.status, sizeof(g_notifier.status), "%s", text);
  // A line feed would begin another assignment.
  const auto is_control = [](char c) { return static_cast<unsigned char>(c) < ' '; };
  std::replace_if(g_notifier.status, g_notifier.status + strlen(g_notifier.status), is_control,
                  '?');
  g_notifier.is_status_due = true;
  CUTIL_NotifyServe();
}

void CUTIL_NotifyServe() {
  if (!t_reports) return;
  const int64_t now_us = CUTIL_MonotonicUs();
  if (g_notifier.watchdog_us > 0 && now_us >= g_notifier.next_alive_us) SendAlive(now_us);
  if (g_notifier.is_status_due && now_us >= g_notifier.next_status_us) SendStatus(now_us);
}

int64_t CUTIL_NotifyWaitUs() {
  if (!t_reports) return INT64_MAX;
  int64_t next_us = INT64_MAX;
  if (g_notifier.watchdog_us > 0) next_us = g_notifier.next_alive_us;
  if (g_notifier.is_status_due) next_us = std::min(next_us, g_notifier.next_status_us);
  return next_us == INT64_MAX ? next_us : std::max<int64_t>(next_us - CUTIL_MonotonicUs(), 0);
}
