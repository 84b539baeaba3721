// Where the lens really is against where the daemon believes it to be: tracking, the reset, and
// long random sequences of commands.
#include <random>

#include "lens/tracking_tables.h"
#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

class LensTruth : public LensTest {
 protected:
  // Ends what moves and expects the file to say where the lens is.
  void ExpectSavedTruth() {
    Focus(1);
    Focus(0);
    ASSERT_TRUE(Drain());
    ASSERT_TRUE(sim::WaitUntil([&] { return !IsMoving(); }));
    EXPECT_EQ(SavedPositions(), RealPositions());
    EXPECT_EQ(LostSteps(), 0);
  }
};

// The curve in whole steps, cut toward the lower entry's focus as the daemon counts.
int CurveAt(int zoom) {
  const auto lower = static_cast<size_t>(zoom / TRACKING_SPACING);
  const auto upper = std::min(lower + 1, ZFTABLE_HERON.size() - 1);
  const int rise = ZFTABLE_HERON[upper].focus - ZFTABLE_HERON[lower].focus;
  return ZFTABLE_HERON[lower].focus + (zoom - ZFTABLE_HERON[lower].zoom) * rise / TRACKING_SPACING;
}

int StepsOf(const sim::LensFrame& frame) {
  return -static_cast<int16_t>(frame.bytes[I2M_HIGH_AT] << 8 | frame.bytes[I2M_LOW_AT]);
}

// From end to end and back, the focus stands on the curve after every tick.
TEST_F(LensTruth, FocusFollowsTheCurveAllTheWay) {
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
            if (frame.bytes[I2M_ADDRESS_AT] == I2M_ADDR_FOCUS_MOVE) {
              // The tick before this one is whole.
              if (ticks++ > 0) {
                EXPECT_EQ(sent.focus, CurveAt(sent.zoom)) << sent;
              }
              sent.focus += StepsOf(frame);
            } else {
              sent.zoom += StepsOf(frame);
            }
          }
          return sent.zoom == end;
        },
        milliseconds(20000)));
    EXPECT_EQ(sent.focus, CurveAt(end));
    EXPECT_EQ(ticks, value < 0 ? 270U : 14U);  // of 5 steps and of 100
    ASSERT_TRUE(sim::WaitUntil([&] { return !IsMoving(); }));
    EXPECT_EQ(RealPositions(), sent);
    // At the limit nothing more is sent.
    ASSERT_TRUE(Sync());
    EXPECT_EQ(TakeFrames(), Lines{});
  }
  Zoom(0);
  ExpectSavedTruth();
}

// The steps of every value, and their time, are tested without the lens.
TEST_F(LensTruth, FocusGoesInTheStepsOfItsValue) {
  StartLens({.zoom = 500, .focus = 1300});
  for (const auto& [value, steps] : {std::pair(-127, 200), {1, -2}, {-70, 5}}) {
    TakeTimedFrames();
    Focus(value);
    std::vector<sim::LensFrame> frames;
    ASSERT_TRUE(sim::WaitUntil([&] { return !(frames = TakeTimedFrames()).empty(); }));
    EXPECT_EQ(StepsOf(frames[0]), steps);
    Focus(0);
    ASSERT_TRUE(Sync());
    EXPECT_EQ(SavedPositions(), RealPositions());
  }
  EXPECT_EQ(LostSteps(), 0);
}

TEST_F(LensTruth, AssistFindsTheEndsFromAnywhere) {
  StartLens({.zoom = 3, .focus = 900});
  // Not where the daemon thinks.
  WithMicom([](sim::LensMicom& micom) { micom.Place({.zoom = 1400, .focus = 2600, .iris = 40}); });
  const auto begin = sim::Clock::now();
  const size_t printed = daemon->Output().size();
  Control(CAMERA_CODE_ASSIST);
  ASSERT_TRUE(WaitOutput("TRACE\t"));
  // The reset, the way to the curve, a pause and a search over 100 steps to either side.
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

// A search that is asked for while the zoom is moving moves the same motor as the tracking does.
TEST_F(LensTruth, SearchDuringADriveLosesNoSteps) {
  StartLens({.zoom = 200, .focus = 240});
  Zoom(-60);
  ASSERT_TRUE(sim::WaitUntil([&] { return Pose().zoom > 250; }));
  Control(CAMERA_CODE_FOCUS_SEARCH);
  ASSERT_TRUE(sim::WaitUntil([&] { return Pose().zoom > 450; }));
  Zoom(0);
  ASSERT_TRUE(WaitOutput("TRACE\t"));
  ExpectSavedTruth();
}

// A short move right behind a longer one: at the limit, or with a new speed.
TEST_F(LensTruth, ShorterChunksLoseNoSteps) {
  StartLens({.zoom = 55, .focus = 201});
  for (const auto& [value, until] : {std::pair(127, 0), {-1, 15}, {-40, 45}, {-1, 65}}) {
    Zoom(value);
    ASSERT_TRUE(sim::WaitUntil([this, way = value, at = until] {
      return way > 0 ? Pose().zoom == at : Pose().zoom >= at;
    }));
  }
  for (int i = 0; i < 10; ++i) {
    Zoom(40);
    Zoom(1);
    Zoom(-30);
    Zoom(-5);
  }
  ASSERT_TRUE(Sync());
  Zoom(40);
  ASSERT_TRUE(sim::WaitUntil([&] { return Pose().zoom == 0; }));
  Zoom(0);
  ExpectSavedTruth();
}

// --- Long random sequences ---------------------------------------------------------------------

class LensRandom : public LensTruth, public testing::WithParamInterface<uint32_t> {
 protected:
  // Sends one command, and lets time pass that has nothing to do with it.
  void Act() {
    const int value = std::uniform_int_distribution<>(1, 127)(random_) * (Roll(2) == 0 ? 1 : -1);
    const int command = Roll(8);
    if (command < 2) Zoom(value);
    if (command == 2 || command == 3) Focus(value);
    if (command == 4) Zoom(0);
    if (command == 5) Focus(0);
    if (command == 6) Control(CAMERA_CODE_FOCUS_SEARCH);
    if (command == 7) Control(CAMERA_CODE_IRIS_STEP, -1);
    std::this_thread::sleep_for(milliseconds(Roll(4) == 0 ? Roll(400) : Roll(40)));
  }

  int Roll(int sides) { return std::uniform_int_distribution<>(0, sides - 1)(random_); }

  std::mt19937 random_{GetParam()};
};

TEST_P(LensRandom, LensIsWhereTheDaemonSaysItIs) {
  const Positions start = {.zoom = Roll(1351), .focus = 100 + Roll(2400)};
  StartLens(start);
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 40; ++i)
      Act();
    Zoom(0);
    ASSERT_TRUE(Drain());
    ExpectSavedTruth();
  }
  const long slipped = WithMicom(
      [](const sim::LensMicom& micom) { return micom.Zoom().Slipped() + micom.Focus().Slipped(); });
  EXPECT_EQ(slipped, 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, LensRandom, testing::Range(1U, 5U),
                         testing::PrintToStringParamName());

}  // namespace
