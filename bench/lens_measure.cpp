#include "bench/lens_measure.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <optional>
#include <random>
#include <stdexcept>
#include <thread>

#include "bench/lens_device.h"
#include "bench/process_stats.h"
#include "ipc/camera_control.h"
#include "lens/lens_profile.h"
#include "lens/motor.h"
#include "lens/position.h"
#include "sim/unique_fd.h"
#include "sim/world.h"

namespace bench {
namespace {

using sim::milliseconds;

void Require(bool good, const char* what) {
  if (!good) throw std::runtime_error(what);
}

// Records of one kind, written by processes in worlds and read by the one that made it.
template <typename Record>
class Mailbox {
 public:
  Mailbox() : fd_(memfd_create("bench", MFD_CLOEXEC)) {
    Require(fd_.IsOpen() && fcntl(fd_.Get(), F_SETFL, O_APPEND) == 0, "no memory file");
  }

  void Post(const Record& record) const {
    Require(write(fd_.Get(), &record, sizeof(record)) == sizeof(record), "cannot report");
  }

  std::vector<Record> Empty() const {
    Require(lseek(fd_.Get(), 0, SEEK_SET) == 0, "cannot read the results");
    std::vector<Record> records;
    Record record;
    while (read(fd_.Get(), &record, sizeof(record)) == sizeof(record))
      records.push_back(record);
    return records;
  }

 private:
  sim::UniqueFd fd_;
};

// Runs `body` in `worlds` worlds at once. Returns whether all went well.
bool InWorlds(int worlds, const std::function<void(int)>& body) {
  return sim::RunInWorlds(worlds, [&body](int world) {
           try {
             body(world);
             return EXIT_SUCCESS;
           } catch (const std::exception& error) {
             fprintf(stderr, "lens device %d: %s\n", world, error.what());
             return EXIT_FAILURE;
           }
         }) == 0;
}

// --- Focus searches ----------------------------------------------------------------------------

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

void StartSearch(const Place& place, LensDevice* device) {
  if (place.half_width == kNarrow) {
    device->Control(CAMERA_CODE_ZOOM, 0, place.zoom == 0 ? 1 : -1);
    device->Control(CAMERA_CODE_ZOOM);
  } else {
    device->Control(CAMERA_CODE_FOCUS_SEARCH);
  }
}

SearchOutcome RunSearch(const sim::FocusTrial& trial, const Place& place, LensDevice* device) {
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
  Require(readings.size() >= 2, "a search takes no measures");
  const auto verdict = sim::JudgeFocusSearch(trial, frames, readings, device->Pose());
  return {.found = verdict.Found(trial), .verdict = verdict};
}

// One world's share of the searches.
void RunShare(int world, int trials, const Mailbox<SearchOutcome>& outcomes) {
  const Place& place = kPlaces[static_cast<size_t>(world) % kPlaces.size()];
  const auto seed = static_cast<uint32_t>(world) + 1;
  LensDevice device({.zoom = place.zoom, .focus = place.focus, .iris = 40}, seed);
  std::mt19937 random(seed);
  for (int i = 0; i < trials; ++i) {
    const sim::FocusTrial trial =
        sim::MakeFocusTrial(i, device.Pose(), place.focus, place.half_width, &random);
    outcomes.Post(RunSearch(trial, place, &device));
  }
  Require(device.Daemon().Stop() == 0, "the daemon does not end well");
}

// --- Moves -------------------------------------------------------------------------------------

// A command's value for moves of 10 steps away from the zero end.
constexpr int kDriveValue = -100;
constexpr int kDriveSteps = 10;

bool IsDriveMove(const sim::LensFrame& frame) {
  const auto value = static_cast<uint16_t>(frame.bytes[I2M_HIGH_AT] << 8 | frame.bytes[I2M_LOW_AT]);
  return frame.bytes[I2M_ADDRESS_AT] == I2M_ADDR_FOCUS_MOVE &&
         value == MoveValue(kDriveSteps, MFZ_PROFILE_HERON.focus_inverted);
}

double StatedMs() {
  constexpr double kUsPerMs = 1000;
  return MotorTimeUs(kDriveSteps, MotorStepDelayMs(MFZ_PROFILE_HERON.normal_speed)) / kUsPerMs;
}

void Drive(double seconds, const Mailbox<double>& beyond) {
  LensDevice device({.zoom = 0, .focus = 0, .iris = 40}, 1);
  device.Control(CAMERA_CODE_FOCUS, kDriveValue);
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  device.Control(CAMERA_CODE_FOCUS);
  device.WaitOutput("--> saved\n");
  const auto frames = device.Rig().With(
      [](sim::LensMicom& micom, const sim::CameraDaemon&) { return micom.TakeFrames(); });
  const sim::LensFrame* last = nullptr;
  for (const sim::LensFrame& frame : frames) {
    if (!IsDriveMove(frame)) continue;
    const auto between = [&] { return frame.time - last->time; };
    if (last != nullptr) {
      beyond.Post(std::chrono::duration<double, std::milli>(between()).count() - StatedMs());
    }
    last = &frame;
  }
  Require(device.Daemon().Stop() == 0, "the daemon does not end well");
}

// --- Rest --------------------------------------------------------------------------------------

struct RestRow {
  const char* id;
  const char* legend;
  const char* sensor;
  const char* antiflicker;
  milliseconds settle;  // until the iris is where it will stay
};
constexpr std::array<RestRow, 3> kRestRows = {{
    {"off", "no regulation", "AR0230", "false", milliseconds(500)},
    {"held", "iris held open", "IMX123", "false", milliseconds(1500)},
    {"on", "iris regulated", "IMX123", "true", milliseconds(6000)},
}};

struct RestOutcome {
  int row;
  double loop;
  double worker;
};

void Rest(int row, int seconds, const Mailbox<RestOutcome>& outcomes) {
  const RestRow& way = kRestRows[static_cast<size_t>(row)];
  LensDevice device({.zoom = 0, .focus = 200, .iris = 40}, 1, way.sensor, way.antiflicker);
  device.Rig().With(
      [](const sim::LensMicom&, sim::CameraDaemon& camera) { camera.scene.light = 8; });
  std::this_thread::sleep_for(way.settle);
  const pid_t pid = device.Daemon().Pid();
  const double loop_before = ThreadCpuSeconds(pid, pid);
  const double all_before = CpuSeconds(pid);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double loop = ThreadCpuSeconds(pid, pid) - loop_before;
  const double all = CpuSeconds(pid) - all_before;
  constexpr double kPercent = 100;
  outcomes.Post({.row = row,
                 .loop = kPercent * loop / seconds,
                 .worker = kPercent * std::max(all - loop, 0.0) / seconds});
  Require(device.Daemon().Stop() == 0, "the daemon does not end well");
}

}  // namespace

std::vector<SearchOutcome> RunSearches(int trials, int worlds, bool* good) {
  const Mailbox<SearchOutcome> outcomes;
  const int share = (trials + worlds - 1) / worlds;
  if (!InWorlds(worlds, [&](int world) { RunShare(world, share, outcomes); })) *good = false;
  return outcomes.Empty();
}

DriveOutcome RunDrive(double seconds) {
  const Mailbox<double> beyond;
  if (!InWorlds(1, [&](int) { Drive(seconds, beyond); })) return {};
  return {.stated_ms = StatedMs(), .beyond_ms = beyond.Empty()};
}

std::vector<LensRest> RunLensRests(int seconds) {
  const Mailbox<RestOutcome> outcomes;
  InWorlds(static_cast<int>(kRestRows.size()), [&](int row) { Rest(row, seconds, outcomes); });
  std::vector<LensRest> rests;
  for (const RestRow& row : kRestRows)
    rests.push_back({.id = row.id, .legend = row.legend});
  for (const RestOutcome& outcome : outcomes.Empty()) {
    LensRest& rest = rests[static_cast<size_t>(outcome.row)];
    rest.loop = outcome.loop;
    rest.worker = outcome.worker;
  }
  return rests;
}

}  // namespace bench
