// rs232ctl: controls, monitors and tunes rs232d through its ports.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/output.h"
#include "tools/usage.h"

namespace {

constexpr char kFooter[] =
    "'rs232ctl COMMAND --help' describes a command.\n"
    "Exit status: 0 success, 1 failure, 2 wrong command line, 3 daemon not running,\n"
    "4 declined, 128 + N if signal N ended a timed motion.\n"
    "Examples:\n"
    "  rs232ctl status\n"
    "  rs232ctl ptz zoom-tele --for 500ms\n"
    "  rs232ctl write --hex FF 01 00 08 00 1D 26\n"
    "  rs232ctl params show";

void AddCommands(CLI::App* app) {
  tools::AddStatusCommand(app);
  tools::AddPtzCommand(app);
  tools::AddWriteCommand(app);
  tools::AddMonitorCommand(app);
  tools::AddFramesCommand(app);
  tools::AddInfoCommand(app);
  tools::AddParamsCommand(app);
  tools::AddFirmwareUpdateCommand(app);
  tools::AddLensCommand(app);
  tools::AddStopCommand(app);
}

// Runs the command line, or prints the requested help or version.
void Parse(CLI::App* app, int argc, char** argv) {
  try {
    app->parse(argc, argv);
  } catch (const CLI::Success& success) {
    app->exit(success);
  }
}

// Buffered output may fail only now, for example on a full disk.
void FinishOutput() {
  if (fflush(stdout) != 0 || ferror(stdout) != 0) {
    throw tools::Failure("cannot write the output");
  }
}

int Run(int argc, char** argv) {
  CLI::App app{"Controls, monitors and tunes the serial-port daemon rs232d.", "rs232ctl"};
  tools::WrapHelp(&app);
  app.require_subcommand(1);
  app.set_version_flag("--version", "rs232ctl " RS232_VERSION, "Print the version");
  app.footer(kFooter);
  AddCommands(&app);
  try {
    Parse(&app, argc, argv);
    FinishOutput();
    return tools::EXIT_STATUS_DONE;
  } catch (const CLI::ParseError& error) {
    tools::Print(stderr, "rs232ctl: %s\n", tools::DescribeParseError(app, error).c_str());
    return tools::EXIT_STATUS_USAGE;
  } catch (const tools::Failure& failure) {
    tools::Print(stderr, "rs232ctl: %s\n", failure.what());
    return failure.status;
  } catch (const std::exception& error) {
    tools::Print(stderr, "rs232ctl: %s\n", error.what());
    return tools::EXIT_STATUS_FAILED;
  }
}

}  // namespace

int main(int argc, char** argv) {
  return Run(argc, argv);
}
