// Waiting for one descriptor to become readable. Any descriptor number will do.
#pragma once

#include <cstdint>

// Waits until `fd` is readable (data, a connection, the peer's end or an error is there), at
// most `microseconds`; 0 polls.
// Returns 1 when it is, 0 when the time ran out, -1 when the wait failed or `fd` is not open.
int ZSK_WaitReadable(int fd, int64_t microseconds);
