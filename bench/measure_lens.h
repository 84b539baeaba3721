// The figures of the lens mode, in their short form.
#pragma once

#include "bench/results.h"

namespace bench {

// Adds the figures under the name of the subject. The calling process must have one thread.
void MeasureLens(const char* subject, int searches, int idle_seconds, Results* results);

}  // namespace bench
