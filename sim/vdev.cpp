// vdev: runs the real daemon on a virtual device in a private world.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "ipc/cicomm.h"
#include "ipc/csysmgr.h"
#include "relay/daemon_datagram.h"
#include "sim/terminal.h"
#include "sim/vdev_session.h"
#include "sim/world.h"
#include "sim/world_door.h"
#include "tools/device_mode.h"
#include "tools/failure.h"
#include "tools/param_fields.h"
#include "tools/usage.h"

namespace {

using sim::GuestCommand;
using sim::SessionOptions;

constexpr char kModels[] =
    "Models: QB-210, QB-220 (SD module), QB-310 to QB-350 (HD module), QB-410 to QB-480 "
    "(motorized lens); any other name, e.g. QB-610 or QB-620, is a PTZ head.";

// The daemon next to this program, or else that of the same installation.
std::string DefaultDaemon() {
  const std::filesystem::path here = sim::ProgramDirectory();
  const std::filesystem::path installed = here.parent_path() / "sbin" / "rs232d";
  return std::filesystem::exists(here / "rs232d") || !std::filesystem::exists(installed)
             ? (here / "rs232d").string()
             : installed.string();
}

// True if a live screen can be drawn.
bool IsOnTerminal() {
  return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0 && sim::IsCapableTerminal();
}

// Runs a session in a world and reports exceptions.
int RunGuarded(const std::function<int()>& session) {
  return sim::RunInWorld([&session] {
    try {
      return session();
    } catch (const std::exception& error) {
      fprintf(stderr, "vdev: %s\n", error.what());
      return EXIT_FAILURE;
    }
  });
}

// Accepts what `rs232ctl params` accepts for this parameter.
CLI::Validator ValueOf(const std::string& parameter) {
  const auto take = [parameter](std::string& text) -> std::string {
    try {
      const tools::ParamChange change = tools::ParseParamChange(parameter + "=" + text);
      if (change.model.empty()) text = std::to_string(change.number);
      return "";
    } catch (const tools::Failure& failure) {
      return failure.what();
    }
  };
  return {take, ""};
}

// The daemon cannot use a port of another interface.
std::string CheckUdpPort(const std::string& text) {
  constexpr std::array kTaken = {RS232_COMMAND_PORT, SERIAL_DATA_PORT, CSYSMGR_PORT,
                                 CAMD_QUERY_PORT};
  const bool is_taken =
      std::ranges::any_of(kTaken, [&text](int port) { return text == std::to_string(port); });
  return is_taken ? text + " is in use by another interface of the device" : "";
}

void AddDeviceOptions(CLI::App* app, SessionOptions* options) {
  app->add_option("MODEL", options->device.model,
                  "device model, which selects the simulated device")
      ->required()
      ->type_name("")
      ->transform(ValueOf(tools::PARAM_MODEL));
  app->add_option("--baud", options->device.baud_rate, "bits per second of the serial line")
      ->type_name("RATE")
      ->transform(ValueOf("baud"))
      ->capture_default_str();
  app->add_option("--ptz-port", options->device.ptz_port, "TCP port of the PTZ server")
      ->type_name("PORT")
      ->transform(ValueOf("ptz-port"))
      ->capture_default_str();
  app->add_option("--udp-port", options->device.udp_port, "UDP port of the daemon")
      ->type_name("PORT")
      ->transform(tools::NumberFrom(1, UINT16_MAX))
      ->check(CLI::Validator(CheckUdpPort, ""))
      ->capture_default_str();
  app->add_option("--daemon", options->daemon, "daemon to run")
      ->type_name("PROGRAM")
      ->check(CLI::Validator(CLI::ExistingFile).description(""))
      ->capture_default_str();
  app->add_flag_function(
      "--trace,!--no-trace", [options](int64_t given) { options->trace = given > 0; },
      "run the daemon with or without its trace (default: with, except for lens models)");
  app->add_flag("--verbose", options->verbose,
                "with a command or shell: print the output of vdev to standard error");
  app->footer(kModels);
}

// The arguments before the first "--", and the command after it.
struct Arguments {
  int count;
  std::optional<GuestCommand> command;
};

Arguments Split(int argc, char** argv) {
  char** mark = std::find_if(argv, argv + argc, [](char* word) { return strcmp(word, "--") == 0; });
  Arguments arguments = {.count = static_cast<int>(mark - argv), .command = std::nullopt};
  if (mark == argv + argc) return arguments;
  arguments.command.emplace();
  arguments.command->words.assign(mark + 1, argv + argc);
  return arguments;
}

int Run(const SessionOptions& options, const std::optional<GuestCommand>& command) {
  if (!tools::IsKnownModel(options.device.model)) {
    fprintf(stderr, "vdev: warning: unknown model %s; the daemon treats it as a PTZ head\n",
            options.device.model.c_str());
  }
  if (command.has_value()) {
    return RunGuarded([&] { return RunCommandSession(options, *command); });
  }
  if (options.plain || options.once || !IsOnTerminal()) {
    return RunGuarded([&] { return RunPlainSession(options); });
  }
  const int status = RunGuarded([&] { return RunScreenSession(options); });
  if (status > sim::kSignalBase) sim::LeaveScreen();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  const Arguments arguments = Split(argc, argv);
  SessionOptions options;
  options.daemon = DefaultDaemon();
  std::optional<pid_t> pid;

  CLI::App app{"Run rs232d on a virtual device, isolated in namespaces of its own.", "vdev"};
  tools::WrapHelp(&app);
  app.require_subcommand(1);
  app.set_version_flag("--version", "vdev " RS232_VERSION, "Print the version");
  app.footer("Every command has a --help option.\nExample: vdev run QB-620 --demo");
  CLI::App* run = app.add_subcommand(
      "run", "Run the daemon for MODEL with a simulated device on its serial line");
  AddDeviceOptions(run, &options);
  run->add_flag("--plain", options.plain, "print plain lines even on a terminal");
  run->add_flag("--demo", options.demo, "run a short demonstration first");
  run->add_flag("--once", options.once,
                "exit after the demonstration, with status 0 if it succeeded")
      ->needs("--demo");
  run->footer(std::string(kModels) +
              "\nOn a terminal, vdev shows a live screen. With -- COMMAND [ARGS...], it runs a "
              "command in the device's world instead and returns its exit status.\n"
              "Examples: vdev run QB-620 --demo\n"
              "          vdev run QB-620 -- rs232ctl stop");
  CLI::App* shell =
      app.add_subcommand("shell", "Run the daemon for MODEL and a shell in the device's world");
  AddDeviceOptions(shell, &options);
  CLI::App* join = app.add_subcommand(
      "join", "Run a command, or a shell, in the world of a running virtual device");
  join->add_option("--pid", pid, "process id of the vdev, if several are running")
      ->type_name("PID")
      ->transform(tools::NumberFrom(1, INT_MAX));
  join->footer("Example: vdev join -- rs232ctl monitor");

  try {
    app.parse(arguments.count, argv);
  } catch (const CLI::Success& success) {  // --help or --version
    return app.exit(success);
  } catch (const CLI::ParseError& error) {
    fprintf(stderr, "vdev: %s\n", tools::DescribeParseError(app, error).c_str());
    return tools::EXIT_STATUS_USAGE;
  }
  const bool has_command = arguments.command.has_value();
  if (has_command && arguments.command->words.empty()) {
    fprintf(stderr, "vdev: missing command after --\n");
    return tools::EXIT_STATUS_USAGE;
  }
  if (has_command && (shell->parsed() || options.demo)) {
    fprintf(stderr, "vdev: -- COMMAND is valid only with 'join' and with 'run' without --demo\n");
    return tools::EXIT_STATUS_USAGE;
  }
  const sim::TerminalKeeper keeper;
  if (join->parsed()) return sim::JoinWorld(pid, arguments.command.value_or(sim::UserShell()));
  return Run(options, shell->parsed() ? sim::UserShell() : arguments.command);
}
