// rs232d [TRACE]: the serial-port daemon.
// rs232d --help | --version
//
// A TRACE other than 0 prints a trace of the serial traffic on standard output. The daemon stays in
// the foreground. SIGTERM and a stop datagram end it with status 0. It exits at once with status 0
// if there is nothing to serve, and with status 1 if its UDP port is not available.
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "context/rs232_context.h"
#include "daemon/dispatch.h"
#include "daemon/resources.h"
#include "daemon/settings.h"
#include "util/notify.h"
#include "util/output.h"

namespace {

constexpr char kHelp[] =
    "Usage: rs232d [TRACE]\n"
    "Serves the device's second serial port. Stays in the foreground.\n"
    "  TRACE      trace level; a number other than 0 prints the traffic of the line\n"
    "  --help     print this help\n"
    "  --version  print the version\n"
    "rs232d(8) lists the requirements; 'rs232ctl status' shows which are not met.\n";
constexpr char kVersion[] = "rs232d " RS232_VERSION "\n";

// Returns the text to print for the only argument, or null if it is the trace level.
const char* TextFor(const char* argument) {
  if (strcmp(argument, "--help") == 0) return kHelp;
  return strcmp(argument, "--version") == 0 ? kVersion : nullptr;
}

void OnTerminate(int /*signal*/) {
  const int error = errno;
  g_rs232_stop.store(1, std::memory_order_relaxed);
  eventfd_write(g_rs232_stop_event, 1);
  errno = error;
}

void OnIgnored(int /*signal*/) {}

// If a standard stream is closed, the next file opened gets its number, and messages would be
// written to the parameter block or to the line.
void EnsureStandardStreams() {
  int fd = 0;
  while (fd >= 0 && fd <= STDERR_FILENO)
    fd = open("/dev/null", O_RDWR);
  if (fd > STDERR_FILENO) close(fd);
}

// Closes inherited descriptors, which would count towards the limit and leave none for clients.
void CloseInherited() {
  constexpr unsigned kFirst = STDERR_FILENO + 1;
  if (syscall(SYS_close_range, kFirst, UINT_MAX, 0) == 0) return;
  // Linux before 5.9.
  constexpr long kMostTried = 65536;
  const auto limit = static_cast<int>(std::min(sysconf(_SC_OPEN_MAX), kMostTried));
  for (int fd = kFirst; fd < limit; ++fd)
    close(fd);
}

// Unblocks all signals. The daemon survives a closed output pipe, a terminal that hangs up and a
// limit on file sizes. It installs handlers instead of SIG_IGN, because the programs that it runs
// would inherit SIG_IGN.
void SetSignals() {
  for (const int ignored : {SIGPIPE, SIGHUP, SIGXFSZ})
    signal(ignored, OnIgnored);
  signal(SIGCHLD, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Makes the output non-blocking, so that a reader that stops reading cannot block the daemon.
void UnblockOutput() {
  if (FILE* output = CUTIL_OpenOutput(STDOUT_FILENO)) stdout = output;
  if (FILE* output = CUTIL_OpenOutput(STDERR_FILENO)) stderr = output;
}

// Makes the process independent of the environment in which it was started.
void DetachFromStarter() {
  EnsureStandardStreams();
  CloseInherited();
  SetSignals();
  UnblockOutput();
  // A working directory elsewhere would keep its file system from being unmounted.
  [[maybe_unused]] const int ignored = chdir("/");
  CUTIL_NotifyInit();
}

// Reads the settings, runs the mode and releases all resources. Returns the process's exit status.
int Run() {
  if (ReadSettings(&g_rs232_settings) != 0) return EXIT_SUCCESS;

  g_rs232_stop_event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  signal(SIGTERM, OnTerminate);
  switch (OpenResources(&g_rs232_settings, &g_rs232_context)) {
    case OpenResult::kFailed:
      return EXIT_FAILURE;
    case OpenResult::kReady:
      RunMode(&g_rs232_context);
      break;
    case OpenResult::kEnd:
      break;
  }
  CUTIL_NotifyStopping();
  ReleaseResources(&g_rs232_context);
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  if (const char* text = argc == 2 ? TextFor(argv[1]) : nullptr) {
    fputs(text, stdout);
    return EXIT_SUCCESS;
  }
  DetachFromStarter();
  g_rs232_context = {};
  if (argc == 2) g_rs232_context.trace_level = atoi(argv[1]);
  const int status = Run();
  // Try once more to write pending output.
  fclose(stdout);
  fclose(stderr);
  return status;
}
