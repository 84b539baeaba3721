#include <CLI/CLI.hpp>

#include "relay/daemon_datagram.h"
#include "tools/commands.h"
#include "tools/daemon_ports.h"

namespace tools {

void AddStopCommand(CLI::App* app) {
  CLI::App* stop = app->add_subcommand("stop", "End the daemon");
  stop->footer(
      "The daemon ends at its next pass and gives the line its earlier settings back.\n"
      "Example: rs232ctl stop");
  stop->final_callback([] { SendToDaemon(RS232_UDP_STOP); });
}

}  // namespace tools
