// What the fuzz targets demand: a property that does not hold ends the run as a finding.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

// Standard error, also where the target's own is closed; above the descriptors that the daemon and
// the checks of them reach.
inline const int g_report_fd = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 200);

// Says what does not hold, and aborts.
[[noreturn]] inline void Fail(const std::string& what) {
  dprintf(g_report_fd, "FINDING: %s\n", what.c_str());
  abort();
}

}  // namespace fuzz

#define FUZZ_CHECK(condition) \
  ((condition)                \
       ? static_cast<void>(0) \
       : fuzz::Fail(std::string(__FILE__ ":") + std::to_string(__LINE__) + ": " #condition))
