// Reports to the service manager: that the daemon serves, a line of status, and that it is alive.
//
// Sends datagrams of "NAME=value" lines to the socket that NOTIFY_SOCKET names, as systemd takes
// them. Without that variable every function returns at once. Nothing here blocks: a report that
// the manager cannot take now is sent again later. The thread that called CUTIL_NotifyInit reports;
// calls from other threads do nothing.
#pragma once

#include <cstdint>

// Longest status line, its NUL included; a longer one is cut.
constexpr int CUTIL_NOTIFY_STATUS_SIZE = 256;
// Shortest time between two status lines, microseconds.
constexpr int64_t CUTIL_NOTIFY_STATUS_US = 1'000'000;

// Reads NOTIFY_SOCKET (a path) and WATCHDOG_USEC, and removes them and WATCHDOG_PID from the
// environment, so that programs which the daemon starts do not report in its name.
void CUTIL_NotifyInit();

// Whether there is a service manager to report to.
bool CUTIL_NotifyIsOn();

void CUTIL_NotifyReady();
void CUTIL_NotifyStopping();

// Makes `text` the status line. What is not printable ASCII becomes '?'. A line that comes too soon
// after the one before it is sent by a later CUTIL_NotifyServe, unless another replaces it until
// then.
void CUTIL_NotifyStatus(const char* text);

// Sends what is due: a report that had to wait, and a sign of life every half of WATCHDOG_USEC.
// With the sign of life goes a request to wait as long again for a stop, so that neither limit ends
// a firmware update. The pass calls this, and so do the waits that may last long.
void CUTIL_NotifyServe();

// Microseconds until CUTIL_NotifyServe has something to send; INT64_MAX when it has nothing.
int64_t CUTIL_NotifyWaitUs();
