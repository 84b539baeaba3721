#include "sim/ptz_head.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using sim::HeadPose;
using std::string;

// A head with a clock of its own.
struct Bench {
  // Sends a frame and lets it act for some time.
  void Send(const PelcoCommand& command, double seconds = 0) {
    head.Feed(PelcoBuild(command), now);
    now += std::chrono::milliseconds(static_cast<int>(seconds * 1000));
  }
  string Pose() { return sim::PtzHead::Describe(head.Pose(now)); }

  sim::Clock::time_point now = {};
  sim::PtzHead head{now};
};

TEST(PtzHead, MovesWhileAMotionLasts) {
  const std::tuple<PelcoCommand, double, HeadPose> rows[] = {
      {{0, PELCO2_PAN_RIGHT, 63, 0}, 9, {.pan = 90}},  // twice round
      {{0, PELCO2_PAN_LEFT, 21, 0}, 1, {.pan = 330}},
      {{0, PELCO2_TILT_UP, 0, 63}, 60, {.tilt = 90}},
      {{0, PELCO2_PAN_RIGHT | PELCO2_TILT_DOWN, 63, 21}, 2, {.pan = 180, .tilt = -30}},
      {{0, PELCO2_ZOOM_TELE, 0, 0}, 2, {.zoom = 7}},
      {{PELCO1_FOCUS_NEAR, 0, 0, 0}, 60, {.focus = 0}},
      {{0, 0, 63, 63}, 60, {}},
  };
  for (const auto& [command, seconds, pose] : rows) {
    Bench bench;
    bench.Send(command, seconds);
    EXPECT_EQ(bench.Pose(), sim::PtzHead::Describe(pose));
    bench.Send({}, 1000);
    EXPECT_FALSE(bench.head.IsMoving());
    EXPECT_EQ(bench.Pose(), sim::PtzHead::Describe(pose));
  }
}

TEST(PtzHead, KeepsPresetsAndSpeeds) {
  Bench bench;
  bench.Send({0, PELCO2_PAN_RIGHT, 63, 0}, 1);
  bench.Send({0, PELCO_SET_PRESET, 0, 7});
  bench.Send({0, PELCO_ZOOM_SPEED, 0, 3});
  bench.Send({0, PELCO_FOCUS_SPEED, 0, 1});
  bench.Send({PELCO1_FOCUS_NEAR, PELCO2_TILT_UP | PELCO2_ZOOM_TELE, 0, 63}, 0.5);
  bench.Send({});
  const string moved = "pan 90.0 deg, tilt 22.5 deg, zoom 7.0x, focus 25 %";
  bench.Send({0, PELCO_GO_TO_PRESET, 0, 8});  // never set
  EXPECT_EQ(bench.Pose(), moved);
  bench.Send({0, PELCO_GO_TO_PRESET, 0, 7});
  EXPECT_EQ(bench.Pose(), "pan 90.0 deg, tilt 0.0 deg, zoom 1.0x, focus 50 %");
  bench.Send({0, PELCO_REMOTE_RESET, 0, 0}, 1);
  EXPECT_EQ(bench.Pose(), sim::PtzHead::Describe({}));
}

}  // namespace
