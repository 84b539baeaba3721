// rs232d [TRACE]: the serial-port daemon.
// rs232d --help | --version
//
// TRACE, a number other than 0, prints a trace of the serial traffic on standard output. The
// daemon stays in the foreground and ends at SIGTERM or a stop datagram with status 0; so does
// a start that finds nothing to serve. Status 1: its UDP port could not be had.
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
    "  TRACE      a number other than 0: print what goes over the line\n"
    "  --help     print this help\n"
    "  --version  print the version\n"
    "What it needs stands in rs232d(8); 'rs232ctl status' says what is missing.\n";
constexpr char kVersion[] = "rs232d " RS232_VERSION "\n";

// The text that the only argument asks for; null where it is the trace level.
const char* TextAskedFor(const char* argument) {
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

// Without standard streams the first files opened would take their numbers, and messages would
// end in the parameter block or on the line.
void EnsureStandardStreams() {
  int fd = 0;
  while (fd >= 0 && fd <= STDERR_FILENO)
    fd = open("/dev/null", O_RDWR);
  if (fd > STDERR_FILENO) close(fd);
}

// Closes what whoever started the daemon left open: inherited descriptors would use up the numbers
// that are left for clients.
void CloseInherited() {
  constexpr unsigned kFirst = STDERR_FILENO + 1;
  if (syscall(SYS_close_range, kFirst, UINT_MAX, 0) == 0) return;
  // Linux before 5.9.
  constexpr long kMostTried = 65536;
  const auto limit = static_cast<int>(std::min(sysconf(_SC_OPEN_MAX), kMostTried));
  for (int fd = kFirst; fd < limit; ++fd)
    close(fd);
}

// No signal stays blocked. Neither a reader of the trace that goes away, nor a terminal that hangs
// up, nor a limit on the size of files ends the daemon. Handlers rather than SIG_IGN: the device
// programs that it runs start with the default actions.
void SetSignals() {
  for (const int ignored : {SIGPIPE, SIGHUP, SIGXFSZ})
    signal(ignored, OnIgnored);
  signal(SIGCHLD, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// A reader of the output that stops reading does not hold up the daemon.
void UnblockOutput() {
  if (FILE* output = CUTIL_OpenOutput(STDOUT_FILENO)) stdout = output;
  if (FILE* output = CUTIL_OpenOutput(STDERR_FILENO)) stderr = output;
}

// Makes the process independent of whoever started it.
void BecomeOwnMaster() {
  EnsureStandardStreams();
  CloseInherited();
  SetSignals();
  UnblockOutput();
  // No file system is kept from being unmounted.
  [[maybe_unused]] const int ignored = chdir("/");
  CUTIL_NotifyInit();
}

// Reads the settings, runs the mode and gives everything back. Returns the process's exit status.
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
  if (const char* text = argc == 2 ? TextAskedFor(argv[1]) : nullptr) {
    fputs(text, stdout);
    return EXIT_SUCCESS;
  }
  BecomeOwnMaster();
  g_rs232_context = {};
  if (argc == 2) g_rs232_context.trace_level = atoi(argv[1]);
  const int status = Run();
  // What waits for its reader gets a last chance.
  fclose(stdout);
  fclose(stderr);
  return status;
}
