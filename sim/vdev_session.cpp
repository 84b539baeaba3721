#include "sim/vdev_session.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

#include "sim/far_end_models.h"
#include "sim/live_screen.h"
#include "sim/plain_printer.h"
#include "sim/session_signals.h"
#include "sim/terminal.h"
#include "sim/vdev_commands.h"
#include "sim/virtual_device.h"
#include "sim/world.h"

namespace sim {
namespace {

// How a stretch of serving ended.
enum class Ending { kTimeOver, kUserStops, kDaemonEnded, kReboot };

constexpr milliseconds kLook{50};

bool IsReadable(int fd) {
  pollfd source = {.fd = fd, .events = POLLIN, .revents = 0};
  return poll(&source, 1, 0) > 0;
}

DeviceSetup SetupOf(const SessionOptions& options) {
  // A lens takes a hundred frames a second: what it makes of them says more than their bytes.
  const bool quiet = KindOfModel(options.device.model) == FarEndKind::kLens;
  DeviceSetup setup;
  setup.daemon = options.daemon;
  setup.trace = options.trace.value_or(!quiet);
  return setup;
}

Ending Watch(VirtualDevice* device, milliseconds time, SessionSignals* signals) {
  const auto end = Clock::now() + time;
  while (true) {
    const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
    if (!device->Serve(std::max(left, milliseconds(0)), signals->Fd())) {
      return device->IsRebooting() ? Ending::kReboot : Ending::kDaemonEnded;
    }
    if (signals->TakeEnd()) return Ending::kUserStops;
    if (Clock::now() >= end) return Ending::kTimeOver;
  }
}

// Carries out a line of a script, of which none may be wrong.
void PlayStep(const ScriptStep& step, VirtualDevice* device) {
  device->Note(std::string("> ") + step.line);
  if (RunCommand(step.line, device) == CommandResult::kBad) {
    throw std::runtime_error(std::string("the script says what is no command: ") + step.line);
  }
}

Ending RunScript(VirtualDevice* device, SessionSignals* signals) {
  for (const ScriptStep& step : DemoScript(device->Config().model)) {
    PlayStep(step, device);
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
      if (RunCommand(line, device) == CommandResult::kQuit) return false;
    }
    return true;
  }

 private:
  std::string text_;
  bool ended_ = false;
};

// Serves until the user has had enough.
Ending Play(VirtualDevice* device, SessionSignals* signals) {
  device->Note(
      "drive the device by typing: right, in, stop, tcp TEXT, ... (help lists all); Ctrl-C ends");
  Input input;
  while (true) {
    const Ending ending = Watch(device, kLook, signals);
    if (ending != Ending::kTimeOver) return ending;
    if (input.Fd() >= 0 && IsReadable(input.Fd()) && !input.Serve(device)) {
      return Ending::kUserStops;
    }
  }
}

// --- The live screen ---------------------------------------------------------------------------

bool FitsScreen() {
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return false;
  if (size.ws_row >= kScreenRowsMin && size.ws_col >= kScreenColsMin) return true;
  printf(
      "vdev   | this terminal has %d by %d characters, the live screen needs %d by %d: plain "
      "lines\n",
      size.ws_col, size.ws_row, kScreenColsMin, kScreenRowsMin);
  return false;
}

// The script of a demonstration, played while the screen is served.
class Player {
 public:
  Player(std::span<const ScriptStep> script, Clock::time_point now) : script_(script), due_(now) {}

  // Plays the steps that are due. Returns false once the script is over.
  bool Serve(VirtualDevice* device, Clock::time_point now) {
    if (now < due_) return true;
    if (script_.empty()) return false;
    PlayStep(script_.front(), device);
    due_ = now + script_.front().watch;
    script_ = script_.subspan(1);
    return true;
  }

 private:
  std::span<const ScriptStep> script_;
  Clock::time_point due_;
};

// Serves the device and its screen until the user, or the daemon, ends it.
Ending ServeScreen(VirtualDevice* device, LiveScreen* screen, SessionSignals* signals, bool demo) {
  constexpr milliseconds kDrawEvery{40};
  std::optional<Player> player;
  if (demo) player.emplace(DemoScript(device->Config().model), Clock::now());
  while (true) {
    const Ending ending = Watch(device, kDrawEvery, signals);
    if (ending != Ending::kTimeOver) return ending;
    if (player.has_value() && !player->Serve(device, Clock::now())) {
      player.reset();
      device->ReleaseDataPort();
    }
    if (!screen->ServeKeys(device)) return Ending::kUserStops;
    screen->Draw(*device);
  }
}

struct ScreenEnd {
  int status;
  std::vector<LogLine> last_lines;
};

ScreenEnd ShowScreen(const SessionOptions& options, Terminal* terminal, SessionSignals* signals) {
  LiveScreen screen(terminal, options.device);
  DeviceSetup setup = SetupOf(options);
  setup.data_port = options.demo;  // who joins the world wants it
  VirtualDevice device(options.device, setup, &screen);
  if (!device.Start()) {
    screen.Note(options.daemon + " did not come up");
    return {.status = EXIT_FAILURE, .last_lines = screen.LastLines()};
  }
  const Ending ending = ServeScreen(&device, &screen, signals, options.demo);
  const bool stopped = device.Stop();
  const bool good = stopped && ending != Ending::kDaemonEnded;
  return {.status = good ? EXIT_SUCCESS : EXIT_FAILURE, .last_lines = screen.LastLines()};
}

// --- A command beside the device ---------------------------------------------------------------

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

pid_t StartGuest(const GuestCommand& command, const std::string& model,
                 const SessionSignals& signals) {
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("cannot fork");
  if (pid > 0) return pid;
  sigprocmask(SIG_SETMASK, &signals.Before(), nullptr);
  _exit(ExecGuest(command, model));
}

// A module or a lens tells about itself soon after the start, and a command may count on that.
// Returns false when the user stops it.
bool AwaitIntroduction(VirtualDevice* device, SessionSignals* signals) {
  constexpr milliseconds kMost{5000};
  const auto end = Clock::now() + kMost;
  while (KindOfModel(device->Config().model) != FarEndKind::kPtzHead &&
         device->Seen().camera_info.empty() && Clock::now() < end) {
    const Ending ending = Watch(device, kLook, signals);
    if (ending != Ending::kTimeOver) return ending != Ending::kUserStops;
  }
  return true;
}

// Passes signals on to the command: those of the terminal reach it by themselves.
void PassSignals(SessionSignals* signals, pid_t guest) {
  while (const auto info = signals->Take()) {
    if (info->ssi_signo != SIGCHLD && info->ssi_code != SI_KERNEL) {
      kill(guest, static_cast<int>(info->ssi_signo));
    }
  }
}

// Serves the device, also one whose daemon has ended, until the command ends. Returns its exit
// status.
int ServeGuest(VirtualDevice* device, pid_t guest, SessionSignals* signals) {
  bool is_serving = true;
  while (true) {
    if (!device->Serve(kLook, signals->Fd()) && std::exchange(is_serving, false)) {
      fprintf(stderr, "vdev: rs232d %s\n",
              device->IsRebooting() ? "has rebooted the device and serves no longer" : "has ended");
    }
    PassSignals(signals, guest);
    int status = 0;
    if (waitpid(guest, &status, WNOHANG) != guest) continue;
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
  }
}

}  // namespace

int RunPlainSession(const SessionOptions& options) {
  SessionSignals signals;
  PlainPrinter printer(stdout);
  DeviceSetup setup = SetupOf(options);
  setup.sightings = options.demo;
  VirtualDevice device(options.device, setup, &printer);
  if (!device.Start()) {
    printer.Note(options.daemon + " did not come up");
    return EXIT_FAILURE;
  }
  Ending ending = Ending::kTimeOver;
  bool shown = true;
  if (options.demo) {
    ending = RunScript(&device, &signals);
    shown = ending == Ending::kUserStops ||
            DemoShowedAll(options.device.model, device.Seen(), &printer);
  }
  if (ending == Ending::kTimeOver && !options.once) ending = Play(&device, &signals);
  const bool stopped = device.Stop();
  return shown && stopped && ending != Ending::kDaemonEnded ? EXIT_SUCCESS : EXIT_FAILURE;
}

int RunScreenSession(const SessionOptions& options) {
  if (!FitsScreen()) return RunPlainSession(options);
  std::unique_ptr<Terminal> terminal = Terminal::Open();
  if (terminal == nullptr) return RunPlainSession(options);
  SessionSignals signals;
  const ScreenEnd end = ShowScreen(options, terminal.get(), &signals);
  terminal.reset();
  for (const LogLine& line : end.last_lines)
    printf("%-6s | %s\n", line.who.c_str(), line.text.c_str());
  return end.status;
}

int RunCommandSession(const SessionOptions& options, const GuestCommand& command) {
  SessionSignals signals;
  const File log(options.verbose ? nullptr : fopen(kSessionLog, "we"));
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
    fprintf(stderr, "vdev: %s did not come up\n", options.daemon.c_str());
    return EXIT_FAILURE;
  }
  if (!AwaitIntroduction(&device, &signals)) {
    device.Stop();
    return kSignalBase + signals.EndSignal();
  }
  if (log) {
    fprintf(stderr, "vdev: rs232d serves %s; vdev's own lines go to %s\n",
            options.device.model.c_str(), kSessionLog);
  }
  const pid_t guest = StartGuest(command, options.device.model, signals);
  const int status = ServeGuest(&device, guest, &signals);
  device.Stop();
  return status;
}

}  // namespace sim
