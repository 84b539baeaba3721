// The focus search through the real daemon: its moves, pauses and results.
#include <random>

#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

class LensSearch : public LensTest {
 protected:
  // Runs a narrow or a wide search. A zoom stop at the end of the zoom's travel moves nothing and
  // starts the narrow one.
  void Search(int half_width) {
    TakeFrames();
    camera->TakeFocusReadings();
    if (half_width == 100) {
      Zoom(Pose().zoom == 0 ? 1 : -1);
      Zoom(0);
    } else {
      Control(CAMERA_CODE_FOCUS_SEARCH);
    }
    ASSERT_TRUE(WaitOutput("--> saved", saves_ += half_width == 100 ? 2 : 1));
  }

  std::vector<sim::FocusReading> Readings() { return camera->TakeFocusReadings(); }

 private:
  size_t saves_ = 0;
};

// The exact sequence of a search whose interval is in mid-range.
TEST_F(LensSearch, MovesAndMeasuresInOrder) {
  StartLens({.zoom = 0, .focus = 230});
  camera->scene.offset = 250 - sim::InFocus(0);
  Search(100);
  const struct {
    size_t count;
    const char* frame;
    int pause_ms;
  } expected[] = {
      {2, "A5 40 0D 00 32 24", 97},   // -50
      {20, "A5 40 0D FF F6 E7", 19},  // +10
      {12, "A5 40 0D 00 0A FC", 19},  // -10, from 330 to 210
      {8, "A5 40 0D FF FB EC", 9},    // +5
  };
  const auto frames = TakeTimedFrames();
  ASSERT_EQ(frames.size(), 2U + 20 + 12 + 8);
  auto frame = frames.begin();
  for (const auto& row : expected) {
    for (size_t i = 0; i < row.count; ++i, ++frame) {
      EXPECT_EQ(sim::Hex(frame->bytes), row.frame);
      const auto next = frame + 1 == frames.end() ? frame->time : frame[1].time;
      EXPECT_GE(next - frame->time, milliseconds(frame + 1 == frames.end() ? 0 : row.pause_ms));
    }
  }
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

// A zoom or focus move ends a search. The zoom is at its end and does not move.
TEST_F(LensSearch, EndsAtAMoveCommand) {
  StartLens({.zoom = 0, .focus = 700});
  for (const uint16_t code : {CAMERA_CODE_FOCUS, CAMERA_CODE_ZOOM}) {
    SCOPED_TRACE(code);
    Control(CAMERA_CODE_FOCUS_SEARCH);
    ASSERT_TRUE(sim::WaitUntil([&] { return !Readings().empty(); }));
    Control(code, 1, 0, 1);
    ASSERT_TRUE(Sync());
    Readings();
    EXPECT_FALSE(daemon->WaitEnd(milliseconds(400)).has_value());
    EXPECT_TRUE(Readings().empty());
    Focus(0);
  }
  EXPECT_EQ(CountInOutput("TRACE\t"), 0U);
}

// --- Many searches -----------------------------------------------------------------------------

struct Place {
  const char* name;
  Positions start;
  int half_width;  // 100 only if the zoom is at an end
};

class LensSearchTrials : public LensSearch, public testing::WithParamInterface<Place> {
 protected:
  // The best noise-free measure between two positions.
  double Sharpest(int from, int to) {
    double best = 0;
    for (sim::LensPose pose = {.zoom = Pose().zoom, .focus = from}; pose.focus <= to; ++pose.focus)
      best = std::max(best, sim::LensOptics::Sharpness(camera->scene, pose));
    return best;
  }

  // The result must be within half a fine step of the best measure, or within a whole one if
  // measures are noisy. If several measures are equal, the last one counts.
  void ExpectFound() {
    auto scan = Readings();
    scan.pop_back();
    const int found = Pose().focus;
    const int lowest = scan.front().pose.focus;
    const int highest = scan.back().pose.focus;
    const int off = camera->scene.noise > 0 ? 10 : 5;
    EXPECT_GT(Sharpest(std::max(found - off, lowest), std::min(found + off, highest)),
              Sharpest(lowest, highest) - 0.5);
    const auto best = std::max_element(
        scan.begin(), scan.end(), [](const auto& a, const auto& b) { return a.value <= b.value; });
    EXPECT_EQ(best->pose.focus, found);
    for (const sim::FocusReading& reading : scan)
      EXPECT_FALSE(reading.moving);
  }
};

TEST_P(LensSearchTrials, FindsThePeak) {
  const sim::Scene scenes[] = {
      {.width = 40, .more_peaks = {}},
      {.width = 150, .more_peaks = {}},
      {.width = 40, .noise = 100, .more_peaks = {}},
      {.width = 40, .more_peaks = {}, .ceiling = 19'000},
      {.width = 25, .more_peaks = {-80, 70}},
      {.height = 0, .more_peaks = {}},
      {.width = 40, .more_peaks = {}},  // peak outside the interval
  };
  const auto& [name, home, half_width] = GetParam();
  StartLens(home);
  // Slow answers of the camera daemon must not shorten the motor's time.
  camera->traits.answer_after = milliseconds(half_width == 200 ? 35 : 0);
  std::mt19937 random(static_cast<uint32_t>(home.focus));
  const double reach = half_width - 20;
  for (size_t i = 0; i < 2 * std::size(scenes); ++i) {
    SCOPED_TRACE(testing::Message() << i << " from " << RealPositions());
    const int start = Pose().focus;
    // A peak below this would drive the lens into the zero end.
    constexpr double kLowestPeak = 50;
    double peak = std::uniform_real_distribution<>(home.focus - reach, home.focus + reach)(random);
    peak = std::clamp(peak, std::max(start - reach, kLowestPeak), start + reach);
    if (i % std::size(scenes) == std::size(scenes) - 1) {
      // Near enough that the slope is measurable in the interval.
      const bool above = start < home.focus || start - half_width < kLowestPeak;
      peak = start + (above ? 1 : -1) * (half_width + 40);
    }
    // Each scene is tested with both kinds of micom.
    micom->traits.starts_late = i % 2 == 1;
    camera->scene = scenes[i % std::size(scenes)];
    camera->scene.offset = peak - sim::InFocus(Pose().zoom);
    Search(half_width);
    ASSERT_FALSE(HasFailure());
    ExpectFound();
    EXPECT_EQ(SavedPositions(), RealPositions());
  }
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
