// lens_bench: how well the focus search finds the peak and what it costs, and the processor time
// of an idle lens mode, measured on the real daemon with a simulated lens.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "lens/control.h"
#include "lens/position.h"
#include "sim/daemon_process.h"
#include "sim/focus_trial.h"
#include "sim/lens_rig.h"
#include "sim/world.h"

namespace {

using sim::milliseconds;

struct Options {
  int trials = 200;
  int worlds = 8;
  int idle_seconds = 10;
};

constexpr milliseconds kSearchLimit{20000};
constexpr int kNarrow = 100;

// Where the lens of a world stands, and how wide its searches are.
struct Place {
  int zoom;
  int focus;
  int half_width;
};
// A search of 100 to either side follows a zoom stop: the zoom is at an end there, so that the
// stop moves nothing.
constexpr std::array<Place, 8> kPlaces = {{{0, 110, 100},
                                           {0, 700, 100},
                                           {1350, 2265, 100},
                                           {1350, 2470, 100},
                                           {700, 605, 200},
                                           {300, 150, 200},
                                           {1200, 1680, 200},
                                           {1000, 2400, 200}}};

void Require(bool good, const char* what) {
  if (!good) throw std::runtime_error(what);
}

int Guarded(const std::function<int()>& body) {
  try {
    return body();
  } catch (const std::exception& error) {
    fprintf(stderr, "lens_bench: %s\n", error.what());
    return EXIT_FAILURE;
  }
}

// The daemon with a lens around it.
class LensDevice {
 public:
  LensDevice(const sim::LensPose& pose, uint32_t seed, const std::string& sensor = "AR0230",
             const std::string& antiflicker = "false") {
    config_.model = "QB-420";
    sim::InstallDevice(config_);
    sim::InstallLens(
        {.zoom = pose.zoom, .focus = pose.focus, .sensor = sensor, .antiflicker = antiflicker});
    rig_ = std::make_unique<sim::LensRig>(&line_, pose, seed);
    daemon_ = std::make_unique<sim::DaemonProcess>(RS232D_PATH, std::vector<std::string>{});
    Require(daemon_->WaitServing(config_), "the daemon does not come up");
    // The loop takes its first command once the start-up is over.
    Control(CAMERA_CODE_IRIS_STEP, -1);
    WaitOutput("(close)\n");
  }

  sim::LensRig& Rig() { return *rig_; }
  sim::DaemonProcess& Daemon() { return *daemon_; }

  void Control(uint16_t code, int first = 0, int third = 0) {
    sender_.SendTo(RS232_COMMAND_PORT,
                   sim::CameraControlPacket({.target = CAMERA_CONTROL_TARGET,
                                             .code = code,
                                             .first = static_cast<int8_t>(first),
                                             .second = 0,
                                             .third = static_cast<int8_t>(third)}));
  }

  void WaitOutput(const std::string& text, size_t after = 0) {
    Require(sim::WaitUntil([&] { return daemon_->Output().find(text, after) != std::string::npos; },
                           kSearchLimit),
            "the daemon does not get on");
  }

  sim::LensPose Pose() {
    return rig_->With(
        [](const sim::LensMicom& micom, const sim::CameraDaemon&) { return micom.Pose(); });
  }

 private:
  sim::DeviceConfig config_;
  sim::SyslogRecorder syslog_;
  sim::PtyLine line_;
  sim::UdpPeer sender_;
  std::unique_ptr<sim::LensRig> rig_;
  std::unique_ptr<sim::DaemonProcess> daemon_;
};

// --- Focus searches ----------------------------------------------------------------------------

// A trial and its verdict, as a world hands it to the process that reports.
struct Outcome {
  sim::TrialKind kind;
  bool found;
  sim::FocusVerdict verdict;
  bool truth_kept;  // the daemon's position is where the lens is, and no step was lost
};

bool IsTruthKept(LensDevice* device) {
  const sim::LensPose pose = device->Pose();
  const long lost = device->Rig().With([](const sim::LensMicom& micom, const sim::CameraDaemon&) {
    return micom.Zoom().Lost() + micom.Focus().Lost();
  });
  return lost == 0 && sim::ReadTextFile(MFZ_CONF_PATH) == sim::PositionsText(pose.zoom, pose.focus);
}

void StartSearch(const Place& place, LensDevice* device) {
  if (place.half_width == kNarrow) {
    device->Control(CAMERA_CODE_ZOOM, 0, place.zoom == 0 ? 1 : -1);
    device->Control(CAMERA_CODE_ZOOM);
  } else {
    device->Control(CAMERA_CODE_FOCUS_SEARCH);
  }
}

Outcome RunTrial(const sim::FocusTrial& trial, const Place& place, LensDevice* device) {
  device->Rig().With([&](sim::LensMicom& micom, sim::CameraDaemon& camera) {
    camera.scene = trial.scene;
    camera.TakeFocusReadings();
    micom.TakeFrames();
  });
  const size_t printed = device->Daemon().Output().size();
  StartSearch(place, device);
  device->WaitOutput("TRACE\t", printed);
  device->WaitOutput("--> saved\n", device->Daemon().Output().find("TRACE\t", printed));
  const auto [frames, readings] =
      device->Rig().With([](sim::LensMicom& micom, sim::CameraDaemon& camera) {
        return std::pair(micom.TakeFrames(), camera.TakeFocusReadings());
      });
  const auto verdict = sim::JudgeFocusSearch(trial, frames, readings, device->Pose());
  return {.kind = trial.kind,
          .found = verdict.Found(trial),
          .verdict = verdict,
          .truth_kept = IsTruthKept(device)};
}

// One world's share of the trials.
int RunTrials(int world, int trials, int results) {
  const Place& place = kPlaces[static_cast<size_t>(world) % kPlaces.size()];
  const auto seed = static_cast<uint32_t>(world) + 1;
  LensDevice device({.zoom = place.zoom, .focus = place.focus, .iris = 40}, seed);
  std::mt19937 random(seed);
  for (int i = 0; i < trials; ++i) {
    const sim::FocusTrial trial =
        sim::MakeFocusTrial(i, device.Pose(), place.focus, place.half_width, &random);
    const Outcome outcome = RunTrial(trial, place, &device);
    Require(write(results, &outcome, sizeof(outcome)) == sizeof(outcome), "cannot report");
  }
  return device.Daemon().Stop() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

struct Tally {
  int trials = 0;
  int found = 0;
  int within_half = 0;   // half a fine step
  int within_whole = 0;  // a fine step
  int worst = 0;
  double error = 0;
  double measures = 0;
  double elapsed_ms = 0;
  double waits_ms = 0;
  int broken = 0;  // rules, truth or rest not kept

  void Add(const Outcome& outcome) {
    const sim::FocusVerdict& verdict = outcome.verdict;
    ++trials;
    found += outcome.found ? 1 : 0;
    within_half += verdict.error <= 5 ? 1 : 0;
    within_whole += verdict.error <= 10 ? 1 : 0;
    worst = std::max(worst, verdict.error);
    error += verdict.error;
    measures += verdict.measures;
    elapsed_ms += verdict.elapsed_ms;
    waits_ms += verdict.waits_ms;
    broken += verdict.rule_kept && verdict.always_still && outcome.truth_kept ? 0 : 1;
  }

  void Print(const char* name) const {
    const double count = std::max(trials, 1);
    printf("%-8s %6d %6.1f%% %5d %5d %6d %6.2f %9.1f %8.0f %8.3f %7d\n", name, trials,
           100 * found / count, within_half, within_whole, worst, error / count, measures / count,
           elapsed_ms / count, elapsed_ms / std::max(waits_ms, 1.0), broken);
  }
};

bool MeasureSearches(const Options& options) {
  const sim::UniqueFd results(memfd_create("lens_bench", MFD_CLOEXEC));
  Require(results.IsOpen() && fcntl(results.Get(), F_SETFL, O_APPEND) == 0, "no memory file");
  const int share = (options.trials + options.worlds - 1) / options.worlds;
  const int failed = sim::RunInWorlds(options.worlds, [&](int world) {
    return Guarded([&] { return RunTrials(world, share, results.Get()); });
  });
  std::array<Tally, sim::kTrialKinds> tallies;
  Tally all;
  Require(lseek(results.Get(), 0, SEEK_SET) == 0, "cannot read the results");
  Outcome outcome;
  while (read(results.Get(), &outcome, sizeof(outcome)) == sizeof(outcome)) {
    tallies[static_cast<size_t>(outcome.kind)].Add(outcome);
    all.Add(outcome);
  }
  printf("%-8s %6s %7s %5s %5s %6s %6s %9s %8s %8s %7s\n", "scene", "trials", "found", "<=5",
         "<=10", "worst", "mean", "measures", "ms", "ms/waits", "broken");
  for (int i = 0; i < sim::kTrialKinds; ++i)
    tallies[static_cast<size_t>(i)].Print(sim::NameOf(static_cast<sim::TrialKind>(i)));
  all.Print("all");
  return failed == 0 && all.trials >= options.trials && all.broken == 0;
}

// --- Idle ----------------------------------------------------------------------------------------

struct IdleRow {
  const char* legend;
  const char* sensor;
  const char* antiflicker;
  milliseconds settle;  // until the iris is where it will stay
};
constexpr std::array<IdleRow, 3> kIdleRows = {{
    {"no regulation", "AR0230", "false", milliseconds(500)},
    {"iris held open", "IMX123", "false", milliseconds(1500)},
    {"iris regulated", "IMX123", "true", milliseconds(6000)},
}};

int MeasureIdle(const IdleRow& row, int seconds) {
  LensDevice device({.zoom = 0, .focus = 200, .iris = 40}, 1, row.sensor, row.antiflicker);
  device.Rig().With(
      [](const sim::LensMicom&, sim::CameraDaemon& camera) { camera.scene.light = 8; });
  std::this_thread::sleep_for(row.settle);
  const double before = device.Daemon().CpuSeconds();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double used = device.Daemon().CpuSeconds() - before;
  printf("idle processor time, %-16s %6.2f%%\n", row.legend, 100 * used / seconds);
  return device.Daemon().Stop() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int Run(const Options& options) {
  bool good = MeasureSearches(options);
  for (const IdleRow& row : kIdleRows) {
    const auto body = [&] { return MeasureIdle(row, options.idle_seconds); };
    if (sim::RunInWorld([&] { return Guarded(body); }) != EXIT_SUCCESS) good = false;
  }
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"Measures the focus search and the idle cost of the lens mode on a simulated lens."};
  app.add_option("--trials", options.trials, "focus searches, at least")
      ->check(CLI::Range(1, 100000))
      ->capture_default_str();
  app.add_option("--worlds", options.worlds, "devices at once")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  app.add_option("--idle-seconds", options.idle_seconds, "length of each idle measurement")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  return Guarded([&options] { return Run(options); });
}
