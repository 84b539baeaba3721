#include "sim/ptz_head.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using sim::Bytes;
using sim::HeadPose;
using std::string;
using Log = std::vector<string>;

const Bytes kLeft = {0xFF, 0x01, 0x00, 0x04, 0x1D, 0x00, 0x22};
const Bytes kStop = {0xFF, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01};

Bytes Join(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts)
    all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A head with a clock of its own that writes down what it takes in.
class HeadBench {
 public:
  HeadBench() {
    head.on_words = [this](const string& words) { log.push_back(words); };
    head.on_noise = [this](std::span<const uint8_t> bytes) { noise += sim::Hex(bytes) + ' '; };
    head.on_answer = [this](std::span<const uint8_t> bytes) { answers.push_back(sim::Hex(bytes)); };
  }
  void Feed(const Bytes& bytes) { head.Feed(bytes, now); }
  void Send(const PelcoCommand& command) {
    const PelcoFrame frame = PelcoBuild(command);
    head.Feed(frame, now);
  }
  void Run(double seconds) {
    now += std::chrono::duration_cast<sim::Clock::duration>(std::chrono::duration<double>(seconds));
  }
  HeadPose Pose() { return head.Pose(now); }

  sim::Clock::time_point now = {};
  sim::PtzHead head{now};
  Log log;
  string noise;
  Log answers;
};

TEST(PtzHead, FindsFramesInNoise) {
  const string left = "pan left at 29";
  Bytes bad = kLeft;
  bad.back() ^= 1;
  Bytes other_receiver = {0xFF, 0x02, 0x00, 0x04, 0x1D, 0x00, 0x23};
  const struct {
    const char* legend;
    std::vector<Bytes> parts;
    Log words;
    Bytes noise;
  } rows[] = {
      {"a frame", {kLeft}, {left}, {}},
      {"two frames", {kLeft, kStop}, {left, "stop"}, {}},
      {"noise before", {{0x00, 0x41}, kLeft}, {left}, {0x00, 0x41}},
      {"noise between", {kLeft, {0x01}, kStop}, {left, "stop"}, {0x01}},
      {"sync bytes before", {{0xFF, 0xFF}, kLeft}, {left}, {0xFF, 0xFF}},
      {"a broken frame before", {{0xFF, 0x01, 0x00}, kLeft}, {left}, {0xFF, 0x01, 0x00}},
      {"bad checksum", {bad, kStop}, {"stop"}, bad},
      {"another receiver", {other_receiver, kStop}, {"stop"}, other_receiver},
      {"a broken frame last", {kStop, {0xFF, 0x01, 0x00}}, {"stop"}, {0xFF, 0x01, 0x00}},
      {"nothing but sync", {Bytes(9, 0xFF)}, {}, Bytes(9, 0xFF)},
  };
  for (const auto& row : rows) {
    const Bytes all = Join(row.parts);
    for (size_t piece = 1; piece <= all.size(); ++piece) {  // in pieces of every size
      HeadBench bench;
      for (size_t at = 0; at < all.size(); at += piece) {
        const auto begin = all.begin() + static_cast<std::ptrdiff_t>(at);
        const size_t size = std::min(piece, all.size() - at);
        bench.Feed(Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)));
      }
      bench.head.Tick(bench.now + sim::kQuietAfter);
      EXPECT_EQ(bench.log, row.words) << row.legend << ", pieces of " << piece;
      const string noise = sim::Hex(row.noise);
      EXPECT_EQ(bench.noise, noise.empty() ? noise : noise + ' ') << row.legend << ' ' << piece;
      EXPECT_EQ(bench.answers, Log(row.words.size(), "FF 01 00 01"));
      EXPECT_EQ(bench.head.FrameCount(), static_cast<int>(row.words.size()));
    }
  }
}

TEST(PtzHead, MovesWhileAMotionLasts) {
  const struct {
    PelcoCommand command;
    double seconds;
    HeadPose pose;
  } rows[] = {
      {{0, PELCO2_PAN_RIGHT, 63, 0}, 1, {.pan = 90}},
      {{0, PELCO2_PAN_RIGHT, 63, 0}, 9, {.pan = 90}},  // twice round
      {{0, PELCO2_PAN_LEFT, 21, 0}, 1, {.pan = 330}},
      {{0, PELCO2_PAN_LEFT, 63, 0}, 11, {.pan = 90}},
      {{0, PELCO2_PAN_RIGHT, 0, 0}, 64, {.pan = 90}},  // creeps
      {{0, PELCO2_TILT_UP, 0, 63}, 1, {.tilt = 45}},
      {{0, PELCO2_TILT_UP, 0, 63}, 60, {.tilt = 90}},
      {{0, PELCO2_TILT_DOWN, 0, 63}, 60, {.tilt = -90}},
      {{0, PELCO2_PAN_RIGHT | PELCO2_TILT_DOWN, 63, 21}, 2, {.pan = 180, .tilt = -30}},
      {{0, PELCO2_ZOOM_TELE, 0, 0}, 2, {.zoom = 7}},
      {{0, PELCO2_ZOOM_TELE, 0, 0}, 60, {.zoom = 20}},
      {{0, PELCO2_ZOOM_WIDE, 0, 0}, 60, {.zoom = 1}},
      {{0, PELCO2_FOCUS_FAR, 0, 0}, 1, {.focus = 75}},
      {{0, PELCO2_FOCUS_FAR, 0, 0}, 60, {.focus = 100}},
      {{PELCO1_FOCUS_NEAR, 0, 0, 0}, 60, {.focus = 0}},
      {{0, 0, 63, 63}, 60, {}},
  };
  for (const auto& row : rows) {
    HeadBench bench;
    bench.Send(row.command);
    bench.Run(row.seconds);
    bench.Feed(kStop);
    EXPECT_FALSE(bench.head.IsMoving());
    bench.Run(1000);
    EXPECT_EQ(sim::PtzHead::Describe(bench.Pose()), sim::PtzHead::Describe(row.pose));
  }
}

TEST(PtzHead, KeepsPresets) {
  HeadBench bench;
  bench.Send({0, PELCO2_PAN_RIGHT, 63, 0});
  bench.Run(1);
  bench.Feed(kStop);
  bench.Send({0, PELCO_SET_PRESET, 0, 7});
  bench.Send({0, PELCO2_TILT_UP | PELCO2_ZOOM_TELE, 0, 63});
  bench.Run(1);
  bench.Feed(kStop);
  bench.Send({0, PELCO_GO_TO_PRESET, 0, 8});  // never set
  EXPECT_EQ(sim::PtzHead::Describe(bench.Pose()),
            "pan 90.0 deg, tilt 45.0 deg, zoom 4.0x, focus 50 %");
  bench.Send({0, PELCO_GO_TO_PRESET, 0, 7});
  const string at_preset = "pan 90.0 deg, tilt 0.0 deg, zoom 1.0x, focus 50 %";
  EXPECT_EQ(sim::PtzHead::Describe(bench.Pose()), at_preset);
  bench.Send({0, PELCO_CLEAR_PRESET, 0, 7});
  bench.Send({0, PELCO2_TILT_DOWN, 0, 63});
  bench.Run(1);
  bench.Send({0, PELCO_GO_TO_PRESET, 0, 7});
  EXPECT_NE(sim::PtzHead::Describe(bench.Pose()), at_preset);
  bench.Send({0, PELCO_REMOTE_RESET, 0, 0});
  bench.Run(1);
  EXPECT_EQ(sim::PtzHead::Describe(bench.Pose()), sim::PtzHead::Describe({}));
}

TEST(PtzHead, TakesZoomAndFocusSpeeds) {
  HeadBench bench;
  bench.Send({0, PELCO_ZOOM_SPEED, 0, 3});
  bench.Send({0, PELCO_FOCUS_SPEED, 0, 1});
  bench.Send({PELCO1_FOCUS_NEAR, PELCO2_ZOOM_TELE, 0, 0});
  bench.Run(0.5);
  EXPECT_EQ(sim::PtzHead::Describe(bench.Pose()),
            "pan 0.0 deg, tilt 0.0 deg, zoom 7.0x, focus 25 %");
}

}  // namespace
