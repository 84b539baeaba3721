// The P-iris through the real daemon: the counters of its state machine.
#include "lens/piris.h"
#include "sim/virtual_time.h"
#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

constexpr char kOpen8[] = "A5 40 0B 00 08 F8";
constexpr char kClose8[] = "A5 40 0B FF F8 E7";
constexpr char kOpen4[] = "A5 40 0B 00 04 F4";
constexpr char kClose4[] = "A5 40 0B FF FC EB";

class LensIris : public LensTest {
 protected:
  // Only the sensor IMX123 has a regulated iris.
  void LaunchWith(const std::string& sensor, const std::string& antiflicker) {
    InstallLens({.zoom = 0, .focus = 200}, sensor, antiflicker);
    Launch();
  }

  // Queues `count` such answers of the camera daemon.
  void Script(size_t count, int32_t level, int32_t deviation) {
    auto& answers = camera->scripted_exposures;
    answers.insert(answers.end(), count, {.level = level, .deviation = deviation});
  }
};

TEST_F(LensIris, RegulatesThroughAllStates) {
  LaunchWith("IMX123", "\"TRUE\"");
  constexpr int kEnough = PIRIS_HYSTERESIS_STEPS + 1;
  Script(1, 0, 50);                          // INIT: no order
  Script(kEnough, 0, 11);                    // MOV: steps, then to MAX
  Script(5, PIRIS_LEVEL_BRIGHT + 1, -50);    // MAX: not counted
  Script(kEnough, PIRIS_LEVEL_BRIGHT, -11);  // to MOV
  Script(1, 0, -11);                         // MOV: a step
  Script(100, 0, 0);
  ASSERT_TRUE(
      sim::WaitUntil([&] { return camera->scripted_exposures.size() < 95; }, milliseconds(40000)));
  ASSERT_TRUE(Sync());
  EXPECT_NE(daemon->Output().find("<<piris_auto_req>>\nclose half\nwait 3sec\n"),
            std::string::npos);
  EXPECT_EQ(CountInOutput("piris"), 1U);
  EXPECT_EQ(daemon->Stop(), 0);

  // Skip the frames of the start-up, 24 small steps at its end, which have their own test.
  constexpr size_t kOfTheStart = 3 + 24;
  const auto frames = TakeTimedFrames();
  Lines expected(12, kOpen8);
  expected.insert(expected.end(), 6, kClose8);
  expected.insert(expected.end(), kEnough, kOpen4);
  expected.emplace_back(kClose4);
  ASSERT_EQ(frames.size(), kOfTheStart + expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    const sim::LensFrame& frame = frames[kOfTheStart + i];
    EXPECT_EQ(sim::Hex(frame.bytes), expected[i]) << i;
    if (i == 0 || i > 18) continue;
    EXPECT_GE(frame.time - frames[kOfTheStart + i - 1].time,
              milliseconds(i == 18 ? 3000 + 100 : 50));
  }

  // The exposure setting is sent with the first step of its state.
  std::vector<std::pair<int, int>> ordered;
  for (const sim::ExposureOrder& order : camera->TakeExposureOrders())
    ordered.emplace_back(order.setting, order.queries);
  EXPECT_EQ(ordered, (std::vector<std::pair<int, int>>{
                         {PIRIS_EXPOSURE_REGULATED, 1},
                         {PIRIS_EXPOSURE_OPEN, 1 + kEnough + 1},
                         {PIRIS_EXPOSURE_REGULATED, 1 + kEnough + 5 + kEnough + 1}}));
  // A step takes at least 100 ms.
  const auto readings = camera->TakeExposureReadings();
  EXPECT_GE(readings.back().time - readings.front().time,
            milliseconds(100) * (readings.size() - 1));
  EXPECT_EQ(micom->Iris().Lost(), 0);
}

// The iris opens once per request, without a query. With another sensor it does not move.
TEST_F(LensIris, OpensOnceInManualMode) {
  for (const bool supported : {true, false}) {
    LaunchWith(supported ? "IMX123" : "AR0230", supported ? "false" : "true");
    AwaitLoop();
    ASSERT_TRUE(!supported ||
                sim::WaitUntil([&] { return !camera->TakeExposureOrders().empty(); }));
    TakeFrames();
    Control(CAMERA_CODE_AF_MODE, 3);
    Lines expected = {"A5 40 23 00 01 09"};
    expected.insert(expected.end(), supported ? 12 : 0, kOpen8);
    Lines seen;
    ASSERT_TRUE(sim::WaitUntil([&] {
      for (const std::string& frame : TakeFrames())
        seen.push_back(frame);
      return seen.size() >= expected.size();
    }));
    // With nothing left to do, the daemon sleeps.
    const uint64_t waits = sim::VirtualTime()->waits(daemon->Pid());
    EXPECT_FALSE(daemon->WaitEnd(milliseconds(2000)).has_value());
    EXPECT_LT(sim::VirtualTime()->waits(daemon->Pid()) - waits, 5U);
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(TakeFrames(), Lines{});
    EXPECT_TRUE(camera->TakeExposureOrders().empty()) << "the setting is already in force";
    EXPECT_TRUE(camera->TakeExposureReadings().empty());
    EXPECT_EQ(daemon->Stop(), 0);
  }
}

}  // namespace
