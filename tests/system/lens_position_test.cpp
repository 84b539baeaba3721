// Compares the true position of the lens with the one that the daemon assumes: tracking, the reset,
// and long random sequences of commands.
#include <random>

#include "lens/tracking_tables.h"
#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

// With an odd parameter, the micom makes the first step of a move at once, with an even one a step
// period late.
class LensTruth : public LensTest, public testing::WithParamInterface<uint32_t> {
 protected:
  LensTruth() { starts_late = GetParam() % 2 == 0; }

  // Stops all motion and expects the true positions in the file.
  void ExpectSavedTruth() {
    Focus(1);
    Focus(0);
    ASSERT_TRUE(Drain());
    // The focus may have to move over its whole travel.
    ASSERT_TRUE(sim::WaitUntil([&] { return !micom->IsMoving(); }, milliseconds(10'000)));
    EXPECT_EQ(SavedPositions(), RealPositions());
    EXPECT_EQ(LostSteps(), 0);
  }
};

int CurveAt(int zoom) {
  int32_t focus = -1;
  TrackingFocus(ZFTABLE_HERON, zoom, &focus);
  return focus;
}

int StepsOf(const sim::LensFrame& frame) {
  return -static_cast<int16_t>(frame.bytes[I2M_HIGH_AT] << 8 | frame.bytes[I2M_LOW_AT]);
}

// From end to end and back, the focus is on the curve after every tick.
TEST_P(LensTruth, FocusFollowsTheWholeCurve) {
  StartLens({.zoom = 0, .focus = 200});
  Positions sent = {.zoom = 0, .focus = 200};
  for (const int value : {-1, 127}) {
    SCOPED_TRACE(value);
    const int end = value < 0 ? 1350 : 0;
    Zoom(value);
    size_t ticks = 0;
    ASSERT_TRUE(sim::WaitUntil(
        [&] {
          for (const sim::LensFrame& frame : TakeTimedFrames()) {
            const bool is_focus = frame.bytes[I2M_ADDRESS_AT] == I2M_ADDR_FOCUS_MOVE;
            // The previous tick is complete.
            EXPECT_TRUE(!is_focus || sent.focus == CurveAt(sent.zoom)) << sent;
            (is_focus ? sent.focus : sent.zoom) += StepsOf(frame);
            ticks += is_focus ? 1 : 0;
          }
          return sent.zoom == end;
        },
        milliseconds(20000)));
    EXPECT_EQ(sent.focus, CurveAt(end));
    EXPECT_EQ(ticks, value < 0 ? 270U : 14U);  // 5 and 100 steps per tick
    ASSERT_TRUE(sim::WaitUntil([&] { return !micom->IsMoving(); }));
    EXPECT_EQ(RealPositions(), sent);
    // At the limit, no more frames are sent.
    ASSERT_TRUE(Sync());
    EXPECT_EQ(TakeFrames(), Lines{});
  }
  Zoom(0);
  ExpectSavedTruth();
}

TEST_P(LensTruth, AssistFindsTheEndsFromAnywhere) {
  StartLens({.zoom = 3, .focus = 900});
  // Differs from the position that the daemon assumes.
  micom->Place({.zoom = 1400, .focus = 2600, .iris = 40});
  const auto begin = sim::Clock::now();
  const size_t printed = daemon->Output().size();
  Control(CAMERA_CODE_ASSIST);
  ASSERT_TRUE(WaitOutput("TRACE\t"));
  // The reset, the move to the curve, a pause, and a search over 100 steps to either side.
  EXPECT_GE(sim::Clock::now() - begin, milliseconds(2 * 100 + 3335 + 391 + 1000 + 1060));
  EXPECT_EQ(daemon->Output().substr(printed, daemon->Output().find("TRACE\t") - printed),
            "'Z'\n"
            "[MotorSpeed] MS_793PPS.   prescaler = 11000+(5*256) = 12280\n"
            "[Reset ZF] Focus:2600step, Zoom:1400step \n"
            "   sleep time: 2600[step] * 1.28[mS] = 3335[mS]\n"
            "   posZoom=0, posFocus=0\n"
            "[MotorSpeed] MS_515PPS.   prescaler = 11000+(5*256) = 12280\n"
            "Driving 'assist_focus()'\n"
            "zoom=   0, focus= 200  --> saved\n"
            "done\nstart AF\n"
            "posZoom=0, posFocus=200\n");
  EXPECT_EQ(RealPositions().zoom, 0);
  EXPECT_NEAR(RealPositions().focus, 200, 5);
  ExpectSavedTruth();
}

// A search requested while the zoom moves uses the same motor as the tracking.
TEST_P(LensTruth, SearchDuringADriveLosesNoSteps) {
  StartLens({.zoom = 200, .focus = 240});
  Zoom(-60);
  ASSERT_TRUE(sim::WaitUntil([&] { return Pose().zoom > 250; }));
  Control(CAMERA_CODE_FOCUS_SEARCH);
  ASSERT_TRUE(sim::WaitUntil([&] { return Pose().zoom > 450; }));
  Zoom(0);
  ASSERT_TRUE(WaitOutput("TRACE\t"));
  ExpectSavedTruth();
}

// A short move right after a longer one: at the limit, or at a new speed.
TEST_P(LensTruth, ShorterChunksLoseNoSteps) {
  StartLens({.zoom = 55, .focus = 201});
  for (const auto& [value, until] : {std::pair(127, 0), {-1, 15}, {-40, 45}, {-1, 65}}) {
    Zoom(value);
    ASSERT_TRUE(sim::WaitUntil([this, way = value, at = until] {
      return way > 0 ? Pose().zoom == at : Pose().zoom >= at;
    }));
  }
  for (int i = 0; i < 40; ++i)
    Zoom(std::array{40, 1, -30, -5}[static_cast<size_t>(i % 4)]);
  ASSERT_TRUE(Sync());
  Zoom(40);
  ASSERT_TRUE(sim::WaitUntil([&] { return Pose().zoom == 0; }));
  Zoom(0);
  ExpectSavedTruth();
}

INSTANTIATE_TEST_SUITE_P(Kinds, LensTruth, testing::Values(1U, 2U));

// Long random sequences of commands with unrelated pauses.
class LensRandom : public LensTruth {};

TEST_P(LensRandom, LensIsAtTheSavedPositions) {
  std::mt19937 random(GetParam());
  const auto roll = [&](int sides) {
    return std::uniform_int_distribution<>(0, sides - 1)(random);
  };
  StartLens({.zoom = roll(1351), .focus = 100 + roll(2400)});
  for (int i = 1; i <= 80; ++i) {
    const int value = (1 + roll(127)) * (roll(2) == 0 ? 1 : -1);
    const std::pair<uint16_t, int> commands[] = {
        {CAMERA_CODE_ZOOM, value},  {CAMERA_CODE_ZOOM, value},    {CAMERA_CODE_FOCUS, value},
        {CAMERA_CODE_FOCUS, value}, {CAMERA_CODE_ZOOM, 0},        {CAMERA_CODE_FOCUS, 0},
        {CAMERA_CODE_IRIS_STEP, 1}, {CAMERA_CODE_FOCUS_SEARCH, 0}};
    const auto [code, parameter] = commands[roll(8)];
    Control(code, parameter, 0, parameter);
    sim::WaitUntil([] { return false; }, milliseconds(roll(4) == 0 ? roll(400) : roll(40)));
    if (i % 40 != 0) continue;
    Zoom(0);
    ASSERT_TRUE(Drain());
    ExpectSavedTruth();
  }
  EXPECT_EQ(micom->Zoom().Slipped() + micom->Focus().Slipped(), 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, LensRandom, testing::Range(1U, 5U),
                         testing::PrintToStringParamName());

}  // namespace
