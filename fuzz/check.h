// What the fuzz targets demand: a property that does not hold ends the run as a finding.
#pragma once

namespace fuzz {

// Says on standard error, also where the target's own output is closed, what does not hold, and
// aborts.
[[noreturn, gnu::format(printf, 1, 2)]] void Fail(const char* format, ...);

}  // namespace fuzz

#define FUZZ_CHECK(condition) \
  ((condition) ? static_cast<void>(0) : fuzz::Fail("%s:%d: %s", __FILE__, __LINE__, #condition))
