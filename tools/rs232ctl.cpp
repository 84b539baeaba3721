// rs232ctl: drives, watches and tunes rs232d from a shell, through the daemon's own ports.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "tools/commands.h"
#include "tools/failure.h"

namespace {

int Run(int argc, char** argv) {
  CLI::App app{"Drives, watches and tunes the serial-port daemon rs232d."};
  app.require_subcommand(1);
  tools::AddFramesCommand(&app);
  tools::AddLensCommand(&app);
  tools::AddMonitorCommand(&app);
  tools::AddStopCommand(&app);
  try {
    app.parse(argc, argv);
    return tools::EXIT_STATUS_DONE;
  } catch (const CLI::Success& success) {  // help was asked for and is printed
    return app.exit(success);
  } catch (const CLI::ParseError& error) {
    fprintf(stderr, "rs232ctl: %s\n", error.what());
    return tools::EXIT_STATUS_USAGE;
  } catch (const tools::Failure& failure) {
    fprintf(stderr, "rs232ctl: %s\n", failure.what());
    return failure.status;
  } catch (const std::exception& error) {
    fprintf(stderr, "rs232ctl: %s\n", error.what());
    return tools::EXIT_STATUS_FAILED;
  }
}

}  // namespace

int main(int argc, char** argv) {
  return Run(argc, argv);
}
