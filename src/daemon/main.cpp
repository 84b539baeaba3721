// rs232d [TRACE]: the serial-port daemon.
//
// TRACE, a number other than 0, prints a trace of the serial traffic on standard output. The
// daemon stays in the foreground and ends at SIGTERM or a stop datagram with status 0; so does
// a start that finds nothing to serve. Status 1: its UDP port could not be had.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "context/rs232_context.h"
#include "daemon/dispatch.h"
#include "daemon/resources.h"
#include "daemon/settings.h"

namespace {

void OnTerminate(int /*signal*/) {
  g_rs232_stop = 1;
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

// Neither a reader of the trace that goes away nor a terminal that hangs up ends the daemon. A
// handler rather than SIG_IGN: the device programs that it runs start with the default action.
void OutliveTerminal() {
  signal(SIGPIPE, OnIgnored);
  signal(SIGHUP, OnIgnored);
}

}  // namespace

int main(int argc, char** argv) {
  EnsureStandardStreams();
  OutliveTerminal();
  g_rs232_context = {};
  if (argc == 2) g_rs232_context.trace_level = atoi(argv[1]);
  if (ReadSettings(&g_rs232_settings) != 0) return EXIT_SUCCESS;

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
  ReleaseResources(&g_rs232_context);
  return EXIT_SUCCESS;
}
