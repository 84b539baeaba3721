// A motorized-lens device for system tests: the real daemon, with a lens micom and a camera daemon
// at work around it.
#pragma once

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "lens/control.h"
#include "lens/position.h"
#include "sim/leftovers.h"
#include "sim/lens_rig.h"
#include "tests/system/device_fixture.h"

// Where other processes read the micom's version.
constexpr char CAMERA_INFO_PATH[] = "/var/nvt/camera.info";

// A zoom and a focus position.
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

  // Lays the files of a lens device out, with the positions file `conf`.
  void InstallLens(const std::string& conf, const std::string& sensor = "AR0230",
                   const std::string& antiflicker = "false") {
    config.model = "QB-420";
    Install();
    sim::InstallLens({.zoom = 0, .focus = 0, .sensor = sensor, .antiflicker = antiflicker});
    sim::WriteTextFile(MFZ_CONF_PATH, conf);
    std::filesystem::remove(CAMERA_INFO_PATH);
  }

  // Puts a micom whose lens stands at `positions`, and a camera daemon, around the daemon.
  void AttachLens(const Positions& positions) {
    rig.reset();
    rig = std::make_unique<sim::LensRig>(
        &line, sim::LensPose{.zoom = positions.zoom, .focus = positions.focus, .iris = 40});
  }

  // The whole of it, with a daemon that knows where the lens stands. Returns once the mode's loop
  // runs and nothing of the start-up is left in Frames.
  void StartLens(const Positions& positions, const std::string& sensor = "AR0230") {
    InstallLens(sim::PositionsText(positions.zoom, positions.focus), sensor);
    AttachLens(positions);
    Launch();
    AwaitLoop();
  }

  void AwaitLoop(sim::milliseconds limit = sim::milliseconds(15000)) {
    ASSERT_TRUE(daemon->WaitServing(config)) << daemon->Output() << daemon->Errors();
    ASSERT_TRUE(Sync(limit)) << daemon->Output() << daemon->Errors();
    TakeFrames();
  }

  // Waits until everything that was sent before has been served: a mark comes out at the far end,
  // twice, since one pass serves datagrams before commands.
  bool Sync(sim::milliseconds limit = sim::milliseconds(8000)) {
    return Mark(limit) && Mark(limit);
  }

  // Waits until every command that was sent before has been carried out. Opens the iris a step.
  bool Drain(sim::milliseconds limit = sim::milliseconds(20000)) {
    static const std::string kOpened = "+PIRIS_STEP_SINGLE (open)\n";
    const size_t opened = CountInOutput(kOpened);
    Control(CAMERA_CODE_IRIS_STEP, 1);
    return WaitOutput(kOpened, opened + 1, limit) && Sync(limit);
  }

  // Every frame since the last call in hexadecimal, marks left out.
  Lines TakeFrames() {
    Collect();
    Lines lines;
    for (const sim::LensFrame& frame : pending_)
      lines.push_back(sim::Hex(frame.bytes));
    pending_.clear();
    return lines;
  }

  std::vector<sim::LensFrame> TakeTimedFrames() {
    Collect();
    return std::exchange(pending_, {});
  }

  // Runs `use` on the lens, or on the camera daemon, while both are held.
  template <typename Use>
  auto WithMicom(Use use) {
    return rig->With([&](sim::LensMicom& micom, sim::CameraDaemon&) { return use(micom); });
  }
  template <typename Use>
  auto WithCamera(Use use) {
    return rig->With([&](sim::LensMicom&, sim::CameraDaemon& camera) { return use(camera); });
  }

  // Where the lens really is.
  sim::LensPose Pose() {
    return WithMicom([](const sim::LensMicom& micom) { return micom.Pose(); });
  }

  Positions RealPositions() {
    const sim::LensPose pose = Pose();
    return {.zoom = pose.zoom, .focus = pose.focus};
  }

  // Steps lost by interrupted moves of zoom and focus.
  long LostSteps() {
    return WithMicom(
        [](const sim::LensMicom& micom) { return micom.Zoom().Lost() + micom.Focus().Lost(); });
  }

  bool IsMoving() {
    return WithMicom([](const sim::LensMicom& micom) { return micom.IsMoving(); });
  }

  // What the positions file holds.
  static Positions SavedPositions() {
    const auto saved = sim::ReadWholePositions();
    EXPECT_TRUE(saved.has_value()) << "not a whole positions file";
    const auto [zoom, focus] = saved.value_or(std::pair(0, 0));
    return {.zoom = zoom, .focus = focus};
  }

  size_t CountInOutput(const std::string& text) const {
    return sim::CountOf(text, daemon->Output());
  }

  void Zoom(int value) { Control(CAMERA_CODE_ZOOM, 0, 0, value); }
  void Focus(int value) { Control(CAMERA_CODE_FOCUS, value); }

  std::unique_ptr<sim::LensRig> rig;

 private:
  // A read of a register that no lens has.
  static constexpr I2mFrame kMark = {0xA5, 0x41, 0x7E, 0x00, 0x00, 0x64};

  bool Mark(sim::milliseconds limit) {
    SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, kMark));
    const int wanted = marks_ + 1;
    return sim::WaitUntil(
        [&] {
          Collect();
          return marks_ >= wanted;
        },
        limit);
  }

  void Collect() {
    const auto frames = WithMicom([](sim::LensMicom& micom) { return micom.TakeFrames(); });
    for (const sim::LensFrame& frame : frames) {
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
