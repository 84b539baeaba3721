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

// The longest that a reset with its search takes is some 20 s.
constexpr std::chrono::seconds kSearchMax{60};
constexpr std::chrono::milliseconds kLookEvery{200};

// The speed at which a drive's step is one of the table's, TRACKING_SPACING zoom steps.
constexpr int8_t kZoomSpeed = 80;
// The slowest: a step of 2 focus steps.
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

// Leads the lens from its zero ends along the zoom. At each place it searches several times, each
// search from 2 focus steps further on than the one before: a search looks at every tenth step, and
// one that starts where the last has ended says the same again.
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

  // A start and its stop: the daemon serves a command a pass, and a pass is one step of its drive.
  static void Pulse(const CameraControl& start) {
    SendControl(start);
    SendControl(Control(start.code));
  }

  // Waits for the end of a search and keeps its point. Returns the zoom.
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
                  "no focus search has come to its end for 60 s; does the "
                  "camera daemon run?");
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
      lens->add_subcommand("record", "Search the focus all along the zoom, and keep the points");
  record->add_option("TRACE.log", request->path, "where the points go")->type_name("")->required();
  record->add_option("--searches", request->searches, "searches at each place of the zoom")
      ->type_name("N")
      ->transform(NumberFrom(1, 20))
      ->capture_default_str();
  record->add_option("--to", request->zoom_end, "the last zoom position, in motor steps")
      ->type_name("ZOOM")
      ->transform(NumberFrom(0, INT16_MAX))
      ->capture_default_str();
  record->footer(
      "Drives both motors to their zero ends first ('F'), then goes on by 50 zoom steps at a time. "
      "The picture has to be flat, detailed, well lit and still. Ctrl-C stops the lens and keeps "
      "what has been recorded. What the daemon prints must be in the journal or in a file.\n"
      "Example: rs232ctl lens record trace.log");
  record->final_callback([request] { Record(*request); });
}

}  // namespace tools
