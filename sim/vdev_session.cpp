#include "sim/vdev_session.h"

#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "sim/live_screen.h"
#include "sim/plain_printer.h"
#include "sim/terminal.h"
#include "sim/vdev_commands.h"
#include "sim/virtual_device.h"
#include "sim/world.h"
#include "tools/device_mode.h"
#include "tools/unique_fd.h"

namespace sim {
namespace {

constexpr milliseconds kLook{50};

// Blocks the signals of a session and makes them readable from a descriptor.
class SessionSignals {
 public:
  SessionSignals() {
    const sigset_t signals = HandledSignals();
    sigprocmask(SIG_BLOCK, &signals, &before_);
    fd_.Reset(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  }
  ~SessionSignals() { Restore(); }

  // Restores the signal mask.
  void Restore() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

  int Fd() const { return fd_.Get(); }

  // Returns the next pending signal.
  std::optional<signalfd_siginfo> Take() const {
    signalfd_siginfo info = {};
    if (read(fd_.Get(), &info, sizeof(info)) != sizeof(info)) return std::nullopt;
    return info;
  }

  // Reads all pending signals. Returns one that ends the session, or 0.
  int TakeEnd() const {
    int end = 0;
    while (const auto info = Take()) {
      if (info->ssi_signo != SIGCHLD) end = static_cast<int>(info->ssi_signo);
    }
    return end;
  }

 private:
  sigset_t before_;
  tools::UniqueFd fd_;
};

// How a session ended.
struct Ending {
  bool by_user;  // else the daemon exited or rebooted the device
  int signal;    // that the user sent; 0: none
};

// Serves the device and, every `pace`, calls `serve_user`, until the daemon exits, a signal
// arrives, or `serve_user` returns false.
Ending Serve(VirtualDevice* device, const SessionSignals& signals, milliseconds pace,
             const std::function<bool()>& serve_user) {
  while (device->Serve(pace, signals.Fd())) {
    if (const int signal = signals.TakeEnd()) return {.by_user = true, .signal = signal};
    if (!serve_user()) return {.by_user = true, .signal = 0};
  }
  return {.by_user = false, .signal = 0};
}

DeviceSetup SetupOf(const SessionOptions& options) {
  // A lens receives a hundred frames a second; their meaning says more than their bytes.
  const bool quiet = tools::ModeOfModel(options.device.model) == tools::MODE_LENS;
  DeviceSetup setup;
  setup.daemon = options.daemon;
  setup.trace = options.trace.value_or(!quiet);
  return setup;
}

// Stops the device. Returns the exit status of vdev.
int Stop(VirtualDevice* device, const Ending& ending) {
  const bool good = device->Stop() && (ending.by_user || device->IsRebooting());
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}

// Plays the script of a demonstration while the device is served.
class Player {
 public:
  explicit Player(const SessionOptions& options) {
    // A device that the user goes on driving must not have rebooted.
    if (options.demo) script_ = DemoScript(options.device.model, options.once);
  }

  // Plays the next step if it is due. Returns false at the end of the script.
  bool Serve(VirtualDevice* device) {
    if (Clock::now() < due_) return true;
    if (next_ == script_.size()) return false;
    const ScriptStep& step = script_[next_++];
    if (!step.line.empty()) device->Note("> " + step.line);
    RunCommand(step.line, device);
    due_ = Clock::now() + step.watch;
    return true;
  }

 private:
  std::vector<ScriptStep> script_;
  size_t next_ = 0;
  Clock::time_point due_;
};

// Commands typed by the user, until the end of the input.
class Input {
 public:
  explicit Input(VirtualDevice* device) : device_(device) {}

  // Starts reading commands.
  void Open() {
    if (std::exchange(is_open_, true)) return;
    device_->Note(
        "type commands to drive the device: right, in, stop, tcp TEXT, ... (help lists all); "
        "Ctrl-C quits");
    device_->rig.Watch(STDIN_FILENO, [this] { Take(); });
  }

  // True after a quit command.
  bool HasQuit() const { return has_quit_; }

 private:
  void Take() {
    std::array<char, 512> bytes;
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) {
      device_->rig.Unwatch(STDIN_FILENO);
      return;
    }
    text_.append(bytes.data(), static_cast<size_t>(count));
    for (const std::string& line : TakeLines(&text_))
      has_quit_ = has_quit_ || !RunCommand(line, device_);
  }

  VirtualDevice* device_;
  std::string text_;
  bool is_open_ = false;
  bool has_quit_ = false;
};

bool FitsScreen() {
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return false;
  if (size.ws_row >= kScreenRowsMin && size.ws_col >= kScreenColsMin) return true;
  printf(
      "vdev   | the terminal has %d by %d characters, but the live screen needs %d by %d; using "
      "plain lines\n",
      size.ws_col, size.ws_row, kScreenColsMin, kScreenRowsMin);
  return false;
}

int ShowScreen(const SessionOptions& options, LiveScreen* screen) {
  constexpr milliseconds kDrawEvery{40};
  const SessionSignals signals;
  DeviceSetup setup = SetupOf(options);
  setup.data_port = options.demo;  // else left to commands that join the world
  VirtualDevice device(options.device, setup, screen);
  if (!device.Start()) {
    device.Note(options.daemon + " failed to start");
    return EXIT_FAILURE;
  }
  Player player(options);
  const Ending ending = Serve(&device, signals, kDrawEvery, [&] {
    if (!player.Serve(&device)) device.ReleaseDataPort();
    if (!screen->ServeKeys(&device)) return false;
    screen->Draw(device);
    return true;
  });
  return Stop(&device, ending);
}

// --- A command beside the device ---------------------------------------------------------------

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

pid_t StartGuest(const GuestCommand& command, const std::string& model,
                 const SessionSignals& signals) {
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("cannot fork");
  if (pid > 0) return pid;
  signals.Restore();
  _exit(ExecGuest(command, model));
}

// Waits until a module or lens has reported its version, since a command may rely on it.
Ending AwaitIntroduction(VirtualDevice* device, const SessionSignals& signals) {
  const auto end = Clock::now() + kPatience;
  const bool is_silent = tools::ModeOfModel(device->rig.config.model) == tools::MODE_RELAY;
  return Serve(device, signals, is_silent ? milliseconds(0) : kLook,
               [&] { return !is_silent && device->CameraInfo().empty() && Clock::now() < end; });
}

// Forwards signals to the command, except those of the terminal, which reach it directly.
void PassSignals(const SessionSignals& signals, pid_t guest) {
  while (const auto info = signals.Take()) {
    if (info->ssi_signo != SIGCHLD && info->ssi_code != SI_KERNEL) {
      kill(guest, static_cast<int>(info->ssi_signo));
    }
  }
}

// Serves the device until the command exits, even after the daemon has exited. Returns the exit
// status of the command.
int ServeGuest(VirtualDevice* device, pid_t guest, const SessionSignals& signals) {
  bool is_serving = true;
  while (true) {
    if (!device->Serve(kLook, signals.Fd()) && std::exchange(is_serving, false)) {
      fprintf(
          stderr, "vdev: rs232d %s\n",
          device->IsRebooting() ? "has rebooted the device and no longer serves" : "has exited");
    }
    PassSignals(signals, guest);
    int status = 0;
    if (waitpid(guest, &status, WNOHANG) != guest) continue;
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
  }
}

}  // namespace

int RunPlainSession(const SessionOptions& options) {
  const SessionSignals signals;
  PlainPrinter printer(stdout);
  DeviceSetup setup = SetupOf(options);
  setup.record = options.demo;
  VirtualDevice device(options.device, setup, &printer);
  if (!device.Start()) {
    device.Note(options.daemon + " failed to start");
    return EXIT_FAILURE;
  }
  Player player(options);
  Input input(&device);
  bool is_playing = options.demo;
  bool showed_all = true;
  const auto end_demo = [&] {
    if (std::exchange(is_playing, false)) showed_all = DemoShowedAll(&device, options.once);
  };
  const Ending ending = Serve(&device, signals, kLook, [&] {
    if (player.Serve(&device)) return true;
    end_demo();
    if (options.once) return false;
    input.Open();
    return !input.HasQuit();
  });
  if (!ending.by_user) end_demo();
  const int status = Stop(&device, ending);
  return showed_all ? status : EXIT_FAILURE;
}

int RunScreenSession(const SessionOptions& options) {
  if (!FitsScreen()) return RunPlainSession(options);
  std::unique_ptr<Terminal> terminal = Terminal::Open();
  if (terminal == nullptr) return RunPlainSession(options);
  LiveScreen screen(terminal.get(), options.device.model);
  const int status = ShowScreen(options, &screen);
  terminal.reset();
  screen.PrintLastLines();
  return status;
}

int RunCommandSession(const SessionOptions& options, const GuestCommand& command) {
  const SessionSignals signals;
  const File log(options.verbose ? nullptr : fopen(kSessionLog, "we"), fclose);
  PlainPrinter printer(log ? log.get() : stderr);
  DeviceSetup setup = SetupOf(options);
  setup.data_port = false;
  setup.client = false;
  VirtualDevice device(options.device, setup, &printer);
  if (!device.Start()) {
    if (log) {
      fflush(log.get());
      fputs(ReadTextFile(kSessionLog).c_str(), stderr);
    }
    fprintf(stderr, "vdev: %s failed to start\n", options.daemon.c_str());
    return EXIT_FAILURE;
  }
  const Ending introduction = AwaitIntroduction(&device, signals);
  if (introduction.signal != 0) {
    device.Stop();
    return kSignalBase + introduction.signal;
  }
  if (log) {
    fprintf(stderr, "vdev: rs232d serves %s; the output of vdev goes to %s\n",
            options.device.model.c_str(), kSessionLog);
  }
  const pid_t guest = StartGuest(command, options.device.model, signals);
  const int status = ServeGuest(&device, guest, signals);
  device.Stop();
  return status;
}

}  // namespace sim
