#include <CLI/CLI.hpp>

#include "relay/daemon_datagram.h"
#include "tools/commands.h"
#include "tools/daemon_ports.h"
#include "tools/output.h"
#include "tools/processes.h"

namespace tools {

namespace {

void RunStop() {
  const bool is_service = IsService();
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
