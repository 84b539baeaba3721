// What micro_bench has measured, as figures.
#pragma once

#include <string>

#include "bench/results.h"

namespace bench {

// Adds the benchmarks of a Google Benchmark JSON file under the name of the subject. Throws
// std::runtime_error when the file is none.
void AddMicroResults(const std::string& path, const char* subject, Results* results);

}  // namespace bench
