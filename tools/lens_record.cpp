#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "lens/control.h"
#include "lens/tracking_tables.h"
#include "tools/commands.h"
#include "tools/daemon_output.h"
#include "tools/daemon_ports.h"
#include "tools/device_mode.h"
#include "tools/failure.h"
#include "tools/lens_trace.h"
#include "tools/output.h"
#include "tools/timed_motion.h"
#include "tools/usage.h"

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;

// Longer than a reset with its search, which takes about 20 s.
constexpr std::chrono::seconds kSearchMax{60};
constexpr std::chrono::milliseconds kLookEvery{200};

// The speed at which a drive step equals TRACKING_SPACING zoom steps, the spacing of the table.
constexpr int8_t kZoomSpeed = 80;
// The slowest speed: a drive step of 2 focus steps.
constexpr int8_t kFocusSpeed = 1;

struct Request {
  std::string path;
  int searches = 4;
  int zoom_end = ZFTABLE_HERON.back().zoom;  // of the curve that the daemon follows
};

constexpr CameraControl Control(uint16_t code, int8_t first = 0, int8_t third = 0) {
  return {
      .target = CAMERA_CONTROL_TARGET, .code = code, .first = first, .second = 0, .third = third};
}

// Drives the lens along the zoom, from its zero ends. Searches several times at each place, and
// starts each search 2 focus steps farther on than the one before: a search measures at every tenth
// step, so starting again from the same place would give the same result.
class Recorder {
 public:
  explicit Recorder(const Request& request) : request_(request), file_(request.path) {
    if (!file_) throw Failure(EXIT_STATUS_FAILED, "cannot write " + request.path);
  }

  void Run() {
    try {
      SendControl(Control(CAMERA_CODE_AF_MODE, LENS_AF_MODE_DAEMON));
      SendControl(Control(CAMERA_CODE_ASSIST));
      for (int zoom = AwaitPoint(), before = -1; zoom > before;) {
        SearchHere();
        Report(zoom);
        before = zoom;
        if (zoom >= request_.zoom_end) break;
        Pulse(Control(CAMERA_CODE_ZOOM, 0, -kZoomSpeed));
        zoom = AwaitPoint();
      }
    } catch (...) {
      Pulse(Control(CAMERA_CODE_FOCUS, -kFocusSpeed));  // ends a search
      SendControl(Control(CAMERA_CODE_ZOOM));
      throw;
    }
  }

 private:
  void SearchHere() {
    for (int search = 1; search < request_.searches; ++search) {
      for (int pulse = 0; pulse < search; ++pulse)
        Pulse(Control(CAMERA_CODE_FOCUS, -kFocusSpeed));
      SendControl(Control(CAMERA_CODE_FOCUS_SEARCH));
      AwaitPoint();
    }
  }

  // Sends a start and a stop: the daemon serves one command per pass, and each pass makes one drive
  // step.
  static void Pulse(const CameraControl& start) {
    SendControl(start);
    SendControl(Control(start.code));
  }

  // Waits for the end of a search and records its point. Returns the zoom.
  int AwaitPoint() {
    const Clock::time_point end = Clock::now() + kSearchMax;
    while (Clock::now() < end) {
      for (const std::string& line : output_.NewLines()) {
        const TraceLog log = ReadTrace(line);
        if (log.points.empty()) continue;
        if (!(file_ << line << std::endl)) {
          throw Failure(EXIT_STATUS_FAILED, "cannot write " + request_.path);
        }
        ++points_;
        return log.points.front().zoom;
      }
      const auto signal = AwaitSignal(signals_, Clock::now() + kLookEvery);
      if (signal.has_value()) FailBySignal(*signal);
    }
    throw Failure(EXIT_STATUS_FAILED,
                  "timeout: no focus search has ended for 60 s; is the "
                  "camera daemon running?");
  }

  void Report(int zoom) const {
    const auto passed = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin_);
    const int places = zoom / TRACKING_SPACING + 1;
    const int left = std::max(0, request_.zoom_end / TRACKING_SPACING + 1 - places);
    const auto minutes = passed.count() * left / places / 60;
    Print(stdout, "zoom %4d of %d: %d points, about %lld min left\n", zoom, request_.zoom_end,
          points_, static_cast<long long>(minutes));
    fflush(stdout);
  }

  const Request& request_;
  std::ofstream file_;
  DaemonOutput output_;
  sigset_t signals_ = HoldSignalsBack();
  Clock::time_point begin_ = Clock::now();
  int points_ = 0;
};

void Record(const Request& request) {
  const std::string model = DeviceModel();
  if (ModeOfModel(model) != MODE_LENS) {
    throw Failure(EXIT_STATUS_FAILED, "this device, " + model + ", has no motorized lens");
  }
  Recorder(request).Run();
}

}  // namespace

void AddLensRecordCommand(CLI::App* lens) {
  const auto request = std::make_shared<Request>();
  CLI::App* record =
      lens->add_subcommand("record", "Record focus searches along the whole zoom range");
  record->add_option("TRACE.log", request->path, "output file for the points")
      ->type_name("")
      ->required();
  record->add_option("--searches", request->searches, "searches at each zoom position")
      ->type_name("N")
      ->transform(NumberFrom(1, 20))
      ->capture_default_str();
  record->add_option("--to", request->zoom_end, "last zoom position, in motor steps")
      ->type_name("ZOOM")
      ->transform(NumberFrom(0, INT16_MAX))
      ->capture_default_str();
  record->footer(
      "First drives both motors to their zero ends (the 'F' button), then searches every 50 zoom "
      "steps. Aim the camera at a flat, detailed, well-lit and still scene. Ctrl-C stops the lens; "
      "the recorded points are kept. The daemon must print to the journal or to a file.\n"
      "Example: rs232ctl lens record trace.log");
  record->final_callback([request] { Record(*request); });
}

}  // namespace tools
