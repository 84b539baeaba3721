// Reports readiness, a status line and liveness to the service manager.
//
// Sends datagrams of "NAME=value" lines to the socket named by NOTIFY_SOCKET, the protocol of
// systemd. Without that variable every function returns at once. Nothing here blocks. If the socket
// is full, the report is retried later, except for CUTIL_NotifyStopping. Only the thread that
// called CUTIL_NotifyInit reports; calls from other threads do nothing.
#pragma once

#include <cstdint>

// Longest status line, NUL included; longer lines are truncated.
constexpr int CUTIL_NOTIFY_STATUS_SIZE = 256;
// Shortest interval between two status lines, microseconds.
constexpr int64_t CUTIL_NOTIFY_STATUS_US = 1'000'000;

// Reads NOTIFY_SOCKET (a path) and WATCHDOG_USEC, then removes them and WATCHDOG_PID from the
// environment, so that child processes do not report in the daemon's name.
void CUTIL_NotifyInit();

// Returns true if the calling thread reports to a service manager.
bool CUTIL_NotifyIsOn();

void CUTIL_NotifyReady();
void CUTIL_NotifyStopping();

// Sets the status line to `text`. Characters other than printable ASCII become '?'. If the previous
// status line is less than CUTIL_NOTIFY_STATUS_US old, a later CUTIL_NotifyServe sends this one,
// unless a newer one replaces it first.
void CUTIL_NotifyStatus(const char* text);

// Sends what is due: a delayed report, and a watchdog message every half of WATCHDOG_USEC. The
// watchdog message also extends the manager's stop timeout by WATCHDOG_USEC, so that neither limit
// ends a firmware update. The pass and the long waits call this.
void CUTIL_NotifyServe();

// Returns the microseconds until CUTIL_NotifyServe has something to send, or INT64_MAX if nothing
// is pending.
int64_t CUTIL_NotifyWaitUs();
