// The P-iris through the real daemon: the machine's counts, and the closed loop with a camera whose
// brightness follows the iris.
#include "lens/piris.h"
#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

constexpr char kOpen8[] = "A5 40 0B 00 08 F8";
constexpr char kClose8[] = "A5 40 0B FF F8 E7";
constexpr char kOpen4[] = "A5 40 0B 00 04 F4";
constexpr char kClose4[] = "A5 40 0B FF FC EB";

class LensIris : public LensTest {
 protected:
  // The iris is regulated for one sensor alone, IMX123.
  void LaunchWith(const std::string& sensor, const std::string& antiflicker) {
    InstallLens(sim::PositionsText(0, 200), sensor, antiflicker);
    AttachLens({.zoom = 0, .focus = 200});
    Launch();
  }

  // Has the camera daemon answer with `count` of these next.
  void Script(int count, int32_t level, int32_t deviation) {
    WithCamera([&](sim::CameraDaemon& camera) {
      for (int i = 0; i < count; ++i)
        camera.scripted_exposures.push_back({.level = level, .deviation = deviation});
    });
  }

  size_t Scripted() {
    return WithCamera(
        [](const sim::CameraDaemon& camera) { return camera.scripted_exposures.size(); });
  }

  std::vector<sim::ExposureOrder> Orders() {
    return WithCamera([](sim::CameraDaemon& camera) { return camera.TakeExposureOrders(); });
  }

  std::vector<sim::ExposureReading> Readings() {
    return WithCamera([](sim::CameraDaemon& camera) { return camera.TakeExposureReadings(); });
  }

  // Waits until the iris has been at rest in the dead band for a dozen answers in a row. Returns
  // where it rests.
  int AwaitRest() {
    constexpr int kEnough = 12;
    int at_rest = 0;
    int iris = -1;
    Readings();
    EXPECT_TRUE(sim::WaitUntil(
        [&] {
          for (const sim::ExposureReading& reading : Readings()) {
            const bool is_fine = std::abs(reading.exposure.deviation) <= PIRIS_DEAD_BAND;
            at_rest = is_fine && reading.pose.iris == iris ? at_rest + 1 : 0;
            iris = reading.pose.iris;
          }
          return at_rest >= kEnough;
        },
        milliseconds(20000)))
        << "iris " << iris;
    return iris;
  }
};

TEST_F(LensIris, AutomaticThroughEveryState) {
  LaunchWith("IMX123", "true");
  constexpr int kEnough = PIRIS_PATIENCE + 1;
  Script(1, 0, 50);                          // INIT: asks for nothing
  Script(kEnough - 1, 0, 11);                // MOV: one too few
  Script(1, 0, 10);                          // the dead band clears the count
  Script(kEnough, 0, 11);                    // to MAX
  Script(5, PIRIS_LEVEL_BRIGHT + 1, -50);    // MAX: does not count
  Script(kEnough, PIRIS_LEVEL_BRIGHT, -11);  // to MOV
  Script(kEnough, 0, -11);                   // to MIN
  Script(kEnough, 0, 11);                    // to MOV
  Script(1, 0, 11);                          // MOV: a step
  Script(100, 0, 0);
  AwaitLoop();
  ASSERT_TRUE(sim::WaitUntil([&] { return Scripted() < 95; }, milliseconds(40000)));
  ASSERT_TRUE(Sync());

  const std::string output = daemon->Output();
  EXPECT_NE(output.find("<<piris_auto_req>>\nclose half\nwait 3sec\n"), std::string::npos);
  EXPECT_EQ(CountInOutput("piris"), 1U);
  EXPECT_EQ(daemon->Stop(), 0);

  // AwaitLoop took the frames of the start-up; the worker may have begun by then.
  const auto frames = TakeTimedFrames();
  Lines lines;
  for (const sim::LensFrame& frame : frames)
    lines.push_back(sim::Hex(frame.bytes));
  Lines expected(12, kOpen8);
  expected.insert(expected.end(), 6, kClose8);
  expected.insert(expected.end(), 2 * kEnough - 1, kOpen4);
  expected.insert(expected.end(), kEnough, kClose4);
  expected.emplace_back(kOpen4);
  const size_t missed = expected.size() - lines.size();
  ASSERT_LE(missed, 2U);
  EXPECT_EQ(lines, Lines(expected.begin() + static_cast<std::ptrdiff_t>(missed), expected.end()));
  for (size_t i = 1; i < 18 - missed; ++i) {
    EXPECT_GE(frames[i].time - frames[i - 1].earliest, milliseconds(50)) << i;
  }
  EXPECT_GE(frames[18 - missed].time - frames[17 - missed].earliest, milliseconds(3000 + 100));

  // An exposure setting goes out with the first step of the state that it belongs to.
  const auto readings = Readings();
  const auto orders = Orders();
  const std::vector<std::pair<int32_t, int>> expected_orders = {
      {PIRIS_EXPOSURE_REGULATED, 1},
      {PIRIS_EXPOSURE_OPEN, 1 + 2 * kEnough + 1},
      {PIRIS_EXPOSURE_REGULATED, 1 + 2 * kEnough + 5 + kEnough + 1}};
  ASSERT_EQ(orders.size(), expected_orders.size());
  for (size_t i = 0; i < orders.size(); ++i) {
    EXPECT_EQ(orders[i].setting, expected_orders[i].first);
    EXPECT_EQ(orders[i].queries, expected_orders[i].second) << i;
  }
  // A tenth of a second a step; the bench may see the first one late.
  EXPECT_GE(readings.back().time - readings.front().time,
            milliseconds(100) * (readings.size() - 2));
  EXPECT_EQ(WithMicom([](const sim::LensMicom& micom) { return micom.Iris().Lost(); }), 0);
}

TEST_F(LensIris, ManualOpensOnceForEachRequest) {
  LaunchWith("IMX123", "false");
  AwaitLoop();
  ASSERT_TRUE(sim::WaitUntil([&] { return !Orders().empty(); }));
  TakeFrames();
  Control(CAMERA_CODE_AF_MODE, 3);
  ASSERT_TRUE(WaitOutput("<<piris_manual_req>>\n", 2));
  Lines expected = {"A5 40 23 00 01 09"};
  expected.insert(expected.end(), 12, kOpen8);
  Lines seen;
  ASSERT_TRUE(sim::WaitUntil([&] {
    for (const std::string& frame : TakeFrames())
      seen.push_back(frame);
    return seen.size() >= expected.size();
  }));
  ASSERT_TRUE(Sync());
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(TakeFrames(), Lines{});
  EXPECT_TRUE(Orders().empty()) << "the setting is in force already";
  EXPECT_TRUE(Readings().empty()) << "nothing is asked while the iris is held open";
}

TEST_F(LensIris, UnsupportedSensorIsLeftAlone) {
  LaunchWith("AR0230", "true");
  AwaitLoop();
  Control(CAMERA_CODE_AF_MODE, 3);
  ASSERT_TRUE(WaitOutput("g_antiflk_enable=1, g_sensor_supported=0\n"));
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), (Lines{"A5 40 23 00 01 09"}));
  EXPECT_TRUE(Orders().empty());
  EXPECT_TRUE(Readings().empty());
}

// The iris brings the brightness into the dead band and stays there, whatever the light does.
TEST_F(LensIris, ClosedLoopSettles) {
  LaunchWith("IMX123", "\"TRUE\"");
  AwaitLoop();
  ASSERT_TRUE(sim::WaitUntil([&] { return !Orders().empty(); }, milliseconds(15000)));
  const struct {
    double light;
    int iris;
    int tolerance = 4;
  } rows[] = {{4, 64}, {16, 32}, {0.5, 96, 0}, {8, 48}};  // at 0.5 the exposure has to help
  for (const auto& row : rows) {
    WithCamera([&](sim::CameraDaemon& camera) { camera.scene.light = row.light; });
    EXPECT_NEAR(AwaitRest(), row.iris, row.tolerance) << row.light;
  }
}

}  // namespace
