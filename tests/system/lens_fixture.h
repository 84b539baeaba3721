// A motorized-lens device for system tests: the real daemon with a lens micom and a camera daemon.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "lens/control.h"
#include "lens/position.h"
#include "sim/leftovers.h"
#include "sim/lens_micom.h"
#include "tests/system/device_fixture.h"
#include "util/camera_info_file.h"

// Zoom and focus positions.
struct Positions {
  int zoom = 0;
  int focus = 0;
  bool operator==(const Positions&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Positions& positions) {
  return out << "zoom " << positions.zoom << ", focus " << positions.focus;
}

class LensTest : public DeviceTest {
 protected:
  using Lines = std::vector<std::string>;

  // Writes the files of a lens device, and attaches a micom with the lens at `positions` and a
  // camera daemon.
  void InstallLens(const Positions& positions, const std::string& sensor = "AR0230",
                   const std::string& antiflicker = "false") {
    const auto [zoom, focus] = positions;
    config.model = "QB-420";
    Install();
    sim::InstallLens({.zoom = zoom, .focus = focus, .sensor = sensor, .antiflicker = antiflicker});
    std::filesystem::remove(CAMERA_INFO_PATH);
    auto lens = std::make_unique<sim::LensMicom>(
        sim::Clock::now(), sim::LensPose{.zoom = zoom, .focus = focus, .iris = 40});
    micom = lens.get();
    micom->traits.starts_late = starts_late;
    Attach(std::move(lens), micom);
  }

  // Starts a daemon with the true lens positions. Returns in the mode's loop, with the frames of
  // the start-up discarded.
  void StartLens(const Positions& positions, const std::string& sensor = "AR0230") {
    InstallLens(positions, sensor);
    Launch();
    AwaitLoop();
  }

  void AwaitLoop() {
    ASSERT_TRUE(WaitServing()) << daemon->Output() << daemon->Errors();
    ASSERT_TRUE(Sync()) << daemon->Output() << daemon->Errors();
    TakeFrames();
  }

  // Waits until the daemon has served all earlier input. Sends a marker to the far end twice, since
  // a pass serves datagrams before commands.
  bool Sync() { return Mark() && Mark(); }

  // Waits until the daemon has executed all earlier commands. Opens the iris by a step.
  bool Drain() {
    static const std::string kOpened = "+PIRIS_STEP_SINGLE (open)\n";
    const size_t opened = CountInOutput(kOpened);
    Control(CAMERA_CODE_IRIS_STEP, 1);
    return WaitOutput(kOpened, opened + 1, kLongest) && Sync();
  }

  // Returns the frames since the last call in hexadecimal, without markers.
  Lines TakeFrames() {
    Lines lines;
    for (const sim::LensFrame& frame : TakeTimedFrames())
      lines.push_back(sim::Hex(frame.bytes));
    return lines;
  }

  std::vector<sim::LensFrame> TakeTimedFrames() {
    Collect();
    return std::exchange(pending_, {});
  }

  // The true position of the lens.
  sim::LensPose Pose() {
    Serve(sim::Clock::now());
    return micom->Pose();
  }

  Positions RealPositions() {
    const sim::LensPose pose = Pose();
    return {.zoom = pose.zoom, .focus = pose.focus};
  }

  // Steps of zoom and focus lost in interrupted moves.
  long LostSteps() const { return micom->Zoom().Lost() + micom->Focus().Lost(); }

  // The positions in the positions file.
  static Positions SavedPositions() {
    const auto saved = sim::ReadWholePositions();
    EXPECT_TRUE(saved.has_value()) << "incomplete positions file";
    const auto [zoom, focus] = saved.value_or(std::pair(0, 0));
    return {.zoom = zoom, .focus = focus};
  }

  size_t CountInOutput(const std::string& text) const {
    return sim::CountOf(text, daemon->Output());
  }

  void Zoom(int value) { Control(CAMERA_CODE_ZOOM, 0, 0, value); }
  void Focus(int value) { Control(CAMERA_CODE_FOCUS, value); }

  sim::LensMicom* micom = nullptr;
  bool starts_late = false;  // for the micom that InstallLens makes

 private:
  // More than the duration of any command.
  static constexpr sim::milliseconds kLongest{20'000};
  // A read of an unused register.
  static constexpr I2mFrame kMark = {0xA5, 0x41, 0x7E, 0x00, 0x00, 0x64};

  bool Mark() {
    const int wanted = marks_ + 1;
    SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, kMark));
    return sim::WaitUntil([&] { return Collect(), marks_ == wanted; }, kLongest);
  }

  void Collect() {
    Serve(sim::Clock::now());
    for (const sim::LensFrame& frame : micom->TakeFrames()) {
      if (frame.bytes == kMark) {
        ++marks_;
      } else {
        pending_.push_back(frame);
      }
    }
  }

  std::vector<sim::LensFrame> pending_;
  int marks_ = 0;
};
