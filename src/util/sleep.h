// A pause that a signal does not shorten.
#pragma once

#include <cstdint>

// Sleeps for at least `microseconds` of monotonic time on the calling thread. A signal handler
// that runs meanwhile does not end the pause: the rest of it is slept as well. Reports to the
// service manager meanwhile when a report is due.
void CUTIL_SleepUs(int64_t microseconds);
