// Checks of the fuzz targets. A failed check ends the run as a finding.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

// A copy of standard error that works even if the target's is closed; numbered above the
// descriptors that the daemon uses and the checks count.
inline const int g_report_fd = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 200);

// Reports the failed property and aborts.
[[noreturn]] inline void Fail(const std::string& what) {
  dprintf(g_report_fd, "FINDING: %s\n", what.c_str());
  abort();
}

}  // namespace fuzz

#define FUZZ_CHECK(condition) \
  ((condition)                \
       ? static_cast<void>(0) \
       : fuzz::Fail(std::string(__FILE__ ":") + std::to_string(__LINE__) + ": " #condition))
