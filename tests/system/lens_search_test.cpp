// The focus search through the real daemon: does it find the peak, does it keep its rules, and
// what does it cost.
#include "sim/focus_trial.h"
#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

class LensSearch : public LensTest {
 protected:
  // Runs one search of either width. A zoom stop at the end of the zoom's way moves nothing, and
  // starts the narrow one.
  void Search(int half_width, milliseconds limit = milliseconds(15000)) {
    TakeFrames();
    WithCamera([](sim::CameraDaemon& camera) { camera.TakeFocusReadings(); });
    if (half_width == 100) {
      Zoom(Pose().zoom == 0 ? 1 : -1);
      Zoom(0);
    } else {
      Control(CAMERA_CODE_FOCUS_SEARCH);
    }
    ASSERT_TRUE(WaitOutput("--> saved", saves_ += half_width == 100 ? 2 : 1, limit));
  }

  std::vector<sim::FocusReading> Readings() {
    return WithCamera([](sim::CameraDaemon& camera) { return camera.TakeFocusReadings(); });
  }

  void Show(const sim::Scene& scene) {
    WithCamera([&](sim::CameraDaemon& camera) { camera.scene = scene; });
  }

 private:
  size_t saves_ = 0;
};

// The sequence of a search with its interval in mid-range, to the step.
TEST_F(LensSearch, MovesAndMeasuresInOrder) {
  StartLens({.zoom = 0, .focus = 230});
  sim::Scene scene;
  scene.offset = 250 - sim::InFocus(0);
  Show(scene);
  Search(100);
  Lines expected(2, "A5 40 0D 00 32 24");                    // -50
  expected.insert(expected.end(), 20, "A5 40 0D FF F6 E7");  // +10
  expected.insert(expected.end(), 12, "A5 40 0D 00 0A FC");  // -10, from 330 to 210
  expected.insert(expected.end(), 8, "A5 40 0D FF FB EC");   // +5
  EXPECT_EQ(TakeFrames(), expected);
  const auto readings = Readings();
  ASSERT_EQ(readings.size(), 22U);
  for (size_t i = 0; i < 21; ++i)
    EXPECT_EQ(readings[i].pose.focus, 130 + 10 * static_cast<int>(i));
  EXPECT_EQ(readings.back().pose.focus, 250);
  EXPECT_EQ(CountInOutput("TRACE\t   0\t 250\tdiff=  20\n"
                          "==================================\n"
                          "zoom=   0, focus= 250  --> saved\n"),
            1U)
      << daemon->Output();
}

// A camera daemon that takes its time takes none of the motor's.
TEST_F(LensSearch, SlowCameraDaemonIsWaitedForWithTheLensAtRest) {
  StartLens({.zoom = 700, .focus = 605});
  WithCamera([](sim::CameraDaemon& camera) { camera.traits.answer_after = milliseconds(35); });
  Search(200);
  for (const sim::FocusReading& reading : Readings())
    EXPECT_FALSE(reading.moving) << reading.pose.focus;
  EXPECT_EQ(LostSteps(), 0);
  EXPECT_EQ(SavedPositions(), RealPositions());
  EXPECT_NEAR(RealPositions().focus, 605, 5);
}

// --- Many searches -----------------------------------------------------------------------------

struct Place {
  const char* name;
  Positions start;
  int half_width;  // 100 only where the zoom is at an end
};

class LensSearchTrials : public LensSearch, public testing::WithParamInterface<Place> {};

TEST_P(LensSearchTrials, FindThePeak) {
  constexpr int kTrials = 14;
  const Place& place = GetParam();
  StartLens(place.start);
  std::mt19937 random(static_cast<uint32_t>(place.start.focus));
  double elapsed = 0;
  double waits = 0;
  for (int i = 0; i < kTrials; ++i) {
    const sim::FocusTrial trial =
        sim::MakeFocusTrial(i, Pose(), place.start.focus, place.half_width, &random);
    SCOPED_TRACE(std::string(sim::NameOf(trial.kind)) + " from " + std::to_string(Pose().focus));
    Show(trial.scene);
    Search(place.half_width);
    ASSERT_FALSE(HasFailure());
    const auto verdict = sim::JudgeFocusSearch(trial, TakeTimedFrames(), Readings(), Pose());
    EXPECT_TRUE(verdict.rule_kept);
    EXPECT_TRUE(verdict.always_still);
    EXPECT_TRUE(verdict.Found(trial)) << verdict.error << " steps off";
    elapsed += verdict.elapsed_ms;
    waits += verdict.waits_ms;
    EXPECT_EQ(SavedPositions(), RealPositions());
  }
  EXPECT_GE(elapsed, waits) << "a wait was cut short";
  EXPECT_EQ(LostSteps(), 0);
}

INSTANTIATE_TEST_SUITE_P(Places, LensSearchTrials,
                         testing::Values(Place{"NearTheZeroEnd", {0, 110}, 100},
                                         Place{"Wide", {0, 700}, 100},
                                         Place{"Tele", {1350, 2265}, 100},
                                         Place{"NearTheMaximum", {1350, 2470}, 100},
                                         Place{"InBetween", {700, 605}, 200}),
                         [](const auto& place) { return place.param.name; });

}  // namespace
