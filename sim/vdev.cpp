// vdev: runs the real daemon on a virtual device, in a world of its own.
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>

#include "sim/far_end_models.h"
#include "sim/vdev_commands.h"
#include "sim/virtual_device.h"
#include "sim/world.h"

namespace {

using sim::VirtualDevice;

struct Options {
  sim::DeviceConfig device;
  std::string daemon;
  std::optional<bool> trace;
  bool demo = false;
  bool once = false;
};

// Beside this program in a build tree, in sbin where both are installed.
std::string DefaultDaemon() {
  const std::filesystem::path own = std::filesystem::read_symlink("/proc/self/exe");
  const std::filesystem::path beside = own.parent_path() / "rs232d";
  if (std::filesystem::exists(beside)) return beside.string();
  return (own.parent_path().parent_path() / "sbin" / "rs232d").string();
}

// Readable once the user wants an end.
sim::UniqueFd MakeSignalFd() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return sim::UniqueFd(signalfd(-1, &signals, SFD_CLOEXEC));
}

// How a stretch of serving ended.
enum class Ending { kTimeOver, kUserStops, kDaemonEnded, kReboot };

bool IsReadable(int fd) {
  pollfd source = {.fd = fd, .events = POLLIN, .revents = 0};
  return poll(&source, 1, 0) > 0;
}

Ending Watch(VirtualDevice* device, sim::milliseconds time, int signals) {
  if (!device->Serve(time, signals)) {
    return device->IsRebooting() ? Ending::kReboot : Ending::kDaemonEnded;
  }
  return IsReadable(signals) ? Ending::kUserStops : Ending::kTimeOver;
}

Ending RunScript(VirtualDevice* device, const std::string& model, int signals) {
  for (const sim::ScriptStep& step : sim::DemoScript(model)) {
    printf("vdev   | > %s\n", step.line);
    sim::RunCommand(step.line, device);
    const Ending ending = Watch(device, step.watch, signals);
    if (ending != Ending::kTimeOver) return ending;
  }
  return Ending::kTimeOver;
}

// Lines typed by the user; ends at the end of the input.
class Input {
 public:
  int Fd() const { return ended_ ? -1 : STDIN_FILENO; }

  // Takes what is there and carries out its whole lines. Returns false when one says quit.
  bool Serve(VirtualDevice* device) {
    std::array<char, 512> bytes;
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) {
      ended_ = true;
      return true;
    }
    text_.append(bytes.data(), static_cast<size_t>(count));
    size_t end = 0;
    while ((end = text_.find('\n')) != std::string::npos) {
      const std::string line = text_.substr(0, end);
      text_.erase(0, end + 1);
      if (sim::RunCommand(line, device) == sim::CommandResult::kQuit) return false;
    }
    return true;
  }

 private:
  std::string text_;
  bool ended_ = false;
};

// Serves until the user has had enough.
Ending Play(VirtualDevice* device, int signals) {
  constexpr sim::milliseconds kLook{50};
  printf(
      "vdev   | drive the device by typing: right, in, stop, tcp TEXT, ... (help lists all); "
      "Ctrl-C ends\n");
  Input input;
  while (true) {
    const Ending ending = Watch(device, kLook, signals);
    if (ending != Ending::kTimeOver) return ending;
    if (input.Fd() >= 0 && IsReadable(input.Fd()) && !input.Serve(device)) {
      return Ending::kUserStops;
    }
  }
}

int RunDevice(const Options& options) {
  const sim::UniqueFd signals = MakeSignalFd();
  // A lens takes a hundred frames a second: what it makes of them says more than their bytes.
  const bool quiet = sim::KindOfModel(options.device.model) == sim::FarEndKind::kLens;
  VirtualDevice device(options.device, options.daemon, options.trace.value_or(!quiet));
  if (!device.Start()) {
    printf("vdev   | %s did not come up\n", options.daemon.c_str());
    return EXIT_FAILURE;
  }
  Ending ending = Ending::kTimeOver;
  bool shown = true;
  if (options.demo) {
    ending = RunScript(&device, options.device.model, signals.Get());
    shown = ending == Ending::kUserStops || sim::DemoShowedAll(options.device.model, device.Seen());
  }
  if (ending == Ending::kTimeOver && !options.once) ending = Play(&device, signals.Get());
  const bool stopped = device.Stop();
  return shown && stopped && ending != Ending::kDaemonEnded ? EXIT_SUCCESS : EXIT_FAILURE;
}

int RunDeviceGuarded(const Options& options) {
  try {
    return RunDevice(options);
  } catch (const std::exception& error) {
    fprintf(stderr, "vdev: %s\n", error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  options.daemon = DefaultDaemon();
  CLI::App app{"Runs rs232d on a virtual device, in a private world of namespaces."};
  app.require_subcommand(1);
  CLI::App* run = app.add_subcommand(
      "run", "Start the daemon for MODEL with what that model has behind its serial line");
  constexpr size_t kModelMax = 127;
  run->add_option("MODEL", options.device.model,
                  "device model, e.g. QB-620 (PTZ head), QB-210 (SD module), QB-310 (HD module) or "
                  "QB-420 (motorized lens)")
      ->required()
      ->check([](const std::string& model) {
        return model.size() <= kModelMax ? "" : "a model name has at most 127 characters";
      });
  run->add_option("--baud", options.device.baud_rate, "bits per second of the serial line")
      ->capture_default_str();
  run->add_option("--ptz-port", options.device.ptz_port, "TCP port of the PTZ server")
      ->check(CLI::Range(1, 32767))
      ->capture_default_str();
  run->add_option("--udp-port", options.device.udp_port, "the daemon's own UDP port")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  run->add_option("--daemon", options.daemon, "the daemon to run")
      ->check(CLI::ExistingFile)
      ->capture_default_str();
  run->add_flag("--trace,!--no-trace", options.trace,
                "run the daemon with its trace (default, but for lens models), or without");
  run->add_flag("--demo", options.demo, "show a short scripted sequence first");
  run->add_flag("--once", options.once, "end after the demonstration, status 0 if all was seen")
      ->needs("--demo");
  run->footer("Example: vdev run QB-620 --demo");
  CLI11_PARSE(app, argc, argv);
  return sim::RunInWorld([&options] { return RunDeviceGuarded(options); });
}
