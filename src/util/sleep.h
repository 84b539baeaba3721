// A sleep that signals do not shorten.
#pragma once

#include <cstdint>

// Sleeps on the calling thread for at least `microseconds` of monotonic time. If a signal handler
// runs meanwhile, the sleep resumes afterwards. Sends due reports to the service manager while it
// sleeps.
void CUTIL_SleepUs(int64_t microseconds);
