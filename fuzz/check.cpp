#include "fuzz/check.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace fuzz {
namespace {

// Above what the daemon's descriptors and the checks of them reach.
constexpr int kFirstReportFd = 200;
const int g_report_fd = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, kFirstReportFd);

}  // namespace

void Fail(const char* format, ...) {
  va_list values;
  va_start(values, format);
  dprintf(g_report_fd, "FINDING: ");
  vdprintf(g_report_fd, format, values);
  dprintf(g_report_fd, "\n");
  va_end(values);
  abort();
}

}  // namespace fuzz
