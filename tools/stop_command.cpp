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
    Print(stdout, "systemd will restart rs232d; use 'systemctl stop rs232d' to keep it stopped\n");
  }
}

}  // namespace

void AddStopCommand(CLI::App* app) {
  CLI::App* stop = app->add_subcommand("stop", "Stop the daemon");
  stop->footer(
      "The daemon restores the original settings of the line and exits. systemd restarts it if it "
      "runs as a service.\n"
      "Example: rs232ctl stop");
  stop->final_callback(RunStop);
}

}  // namespace tools
