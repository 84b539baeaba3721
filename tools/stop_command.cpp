#include <sys/stat.h>

#include <CLI/CLI.hpp>

#include "relay/daemon_datagram.h"
#include "tools/commands.h"
#include "tools/daemon_ports.h"
#include "tools/output.h"

namespace tools {

namespace {

// A link that systemd keeps for as long as the service is wanted, also between an end of the daemon
// and its next start; every user may see it.
constexpr char kServiceLink[] = "/run/systemd/units/invocation:rs232d.service";

void RunStop() {
  struct stat status;
  const bool is_service = lstat(kServiceLink, &status) == 0;
  SendToDaemon(RS232_UDP_STOP);
  if (is_service) {
    Print(stdout, "systemd starts rs232d again; 'systemctl stop rs232d' keeps it stopped\n");
  }
}

}  // namespace

void AddStopCommand(CLI::App* app) {
  CLI::App* stop = app->add_subcommand("stop", "End the daemon");
  stop->footer(
      "The daemon ends at its next pass and gives the line its earlier settings back.\n"
      "As a service of systemd it is then started again.\n"
      "Example: rs232ctl stop");
  stop->final_callback(RunStop);
}

}  // namespace tools
