// Waits until one descriptor is readable. Works for any descriptor number.
#pragma once

#include <cstdint>

// Waits at most `microseconds` until `fd` is readable: data, a connection, end of file or an error
// is pending. 0 polls. Returns 1 if it is readable, 0 on timeout, -1 if the wait failed or `fd` is
// not open.
int ZSK_WaitReadable(int fd, int64_t microseconds);
