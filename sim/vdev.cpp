// vdev: runs the real daemon on a virtual device, in a world of its own.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "sim/guest_command.h"
#include "sim/terminal.h"
#include "sim/vdev_session.h"
#include "sim/world.h"
#include "sim/world_door.h"

namespace {

using sim::GuestCommand;
using sim::SessionOptions;

constexpr int kUsageStatus = 2;

// Beside this program, or in the directory where an installation has it.
std::string DefaultDaemon() {
  const std::filesystem::path here = sim::ProgramDirectory();
  const std::filesystem::path installed = here.parent_path() / "sbin" / "rs232d";
  return std::filesystem::exists(here / "rs232d") || !std::filesystem::exists(installed)
             ? (here / "rs232d").string()
             : installed.string();
}

// Whether a screen can be drawn.
bool IsOnTerminal() {
  const char* kind = getenv("TERM");
  return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0 && kind != nullptr &&
         *kind != '\0' && strcmp(kind, "dumb") != 0;
}

// Runs a session in a world, and gives the terminal back however it ended.
int RunGuarded(const std::function<int()>& session) {
  const sim::TerminalKeeper keeper;
  return sim::RunInWorld([&session] {
    try {
      return session();
    } catch (const std::exception& error) {
      fprintf(stderr, "vdev: %s\n", error.what());
      return EXIT_FAILURE;
    }
  });
}

void AddDeviceOptions(CLI::App* app, SessionOptions* options) {
  constexpr size_t kModelMax = 127;
  app->add_option("MODEL", options->device.model,
                  "device model, e.g. QB-620 (PTZ head), QB-210 (SD module), QB-310 (HD module) or "
                  "QB-420 (motorized lens)")
      ->required()
      ->check([](const std::string& model) {
        return model.size() <= kModelMax ? "" : "a model name has at most 127 characters";
      });
  app->add_option("--baud", options->device.baud_rate, "bits per second of the serial line")
      ->capture_default_str();
  app->add_option("--ptz-port", options->device.ptz_port, "TCP port of the PTZ server")
      ->check(CLI::Range(1, 32767))
      ->capture_default_str();
  app->add_option("--udp-port", options->device.udp_port, "the daemon's own UDP port")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  app->add_option("--daemon", options->daemon, "the daemon to run")
      ->check(CLI::ExistingFile)
      ->capture_default_str();
  app->add_flag_function(
      "--trace,!--no-trace", [options](int64_t given) { options->trace = given > 0; },
      "run the daemon with its trace (default, but for lens models), or without");
  app->add_flag("--verbose", options->verbose,
                "with a command or a shell: vdev's own lines go to standard error");
}

// The command line up to the first "--", and what follows it.
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

int Run(const SessionOptions& options, bool plain, const std::optional<GuestCommand>& command) {
  if (command.has_value()) {
    return RunGuarded([&] { return RunCommandSession(options, *command); });
  }
  if (!plain && !options.once && IsOnTerminal()) {
    const int status = RunGuarded([&] { return RunScreenSession(options); });
    constexpr int kSignalBase = 128;
    if (status > kSignalBase) sim::LeaveScreen();
    return status;
  }
  return RunGuarded([&] { return RunPlainSession(options); });
}

}  // namespace

int main(int argc, char** argv) {
  const Arguments arguments = Split(argc, argv);
  SessionOptions options;
  options.daemon = DefaultDaemon();
  bool plain = false;
  std::optional<pid_t> pid;

  CLI::App app{"Runs rs232d on a virtual device, in a private world of namespaces."};
  app.require_subcommand(1);
  CLI::App* run = app.add_subcommand(
      "run", "Start the daemon for MODEL with what that model has behind its serial line");
  AddDeviceOptions(run, &options);
  run->add_flag("--plain", plain, "print plain lines also on a terminal");
  run->add_flag("--demo", options.demo, "show a short scripted sequence first");
  run->add_flag("--once", options.once, "end after the demonstration, status 0 if all was seen")
      ->needs("--demo");
  run->footer(
      "On a terminal the device is shown on a live screen. -- COMMAND [ARGS...] runs a command\n"
      "beside the device instead; the exit status is the command's.\n"
      "Examples: vdev run QB-620 --demo\n"
      "          vdev run QB-620 -- rs232ctl stop");
  CLI::App* shell = app.add_subcommand("shell", "The same with your shell as the command");
  AddDeviceOptions(shell, &options);
  CLI::App* join = app.add_subcommand(
      "join", "Run a command, or your shell, in the world of a virtual device that runs");
  join->add_option("--pid", pid, "process id of the vdev, where several run");
  join->footer("Example: vdev join -- rs232ctl monitor");

  try {
    app.parse(arguments.count, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_SUCCESS : kUsageStatus;
  }
  const bool has_command = arguments.command.has_value();
  if (has_command && (arguments.command->words.empty() || shell->parsed() || options.demo)) {
    fprintf(stderr, "vdev: a command follows -- in 'run' without --demo, and in 'join'\n");
    return kUsageStatus;
  }
  const GuestCommand command = arguments.command.value_or(sim::UserShell());
  if (join->parsed()) {
    const sim::TerminalKeeper keeper;
    return sim::JoinWorld(pid, command);
  }
  if (shell->parsed()) return Run(options, plain, command);
  return Run(options, plain, arguments.command);
}
