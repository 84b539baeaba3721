#include "lens/drive.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "lens/mfz_state.h"
#include "lens/motor.h"
#include "lens/position.h"
#include "lens_line.h"

namespace {

using Lines = std::vector<std::string>;
using std::chrono::microseconds;
using std::chrono::steady_clock;

// First and last size of a command's value that gives an index, and the steps that go with it.
struct SpeedRow {
  int first;
  int last;
  int32_t zoom_step;
  int32_t focus_step;
};
constexpr SpeedRow kSpeeds[] = {
    {1, 11, 5, 2},      {12, 24, 5, 2},       {25, 37, 10, 2},      {38, 50, 10, 2},
    {51, 62, 10, 5},    {63, 75, 10, 5},      {76, 88, 50, 10},     {89, 101, 50, 10},
    {102, 114, 50, 50}, {115, 126, 100, 100}, {127, 128, 100, 200},
};

TEST(DriveSpeed, ByTheSizeOfTheValue) {
  int index = 0;
  for (const SpeedRow& row : kSpeeds) {
    for (int size = row.first; size <= row.last; ++size) {
      for (const int value : {size, -size}) {
        if (value > INT8_MAX) continue;
        EXPECT_EQ(DriveSpeedIndex(static_cast<int8_t>(value)), index) << value;
        set_zoom_drive_step(static_cast<int8_t>(value));
        set_focus_drive_step(static_cast<int8_t>(value));
        EXPECT_EQ(g_lens.profile.zoom_drive_step, row.zoom_step) << value;
        EXPECT_EQ(g_lens.profile.focus_drive_step, row.focus_step) << value;
      }
    }
    ++index;
  }
}

TEST(DriveAmount, EndsAtTheLimits) {
  const struct {
    int32_t position;
    int32_t step;
    int32_t toward_zero;
    int32_t toward_maximum;
  } rows[] = {
      {-40, 5, 0, 5},  {0, 5, 0, 5},     {1, 5, 1, 5},    {4, 5, 4, 5},          {5, 5, 5, 5},
      {6, 5, 5, 5},    {3, 200, 3, 200}, {2595, 5, 5, 5}, {2596, 5, 5, 4},       {2598, 5, 5, 2},
      {2599, 5, 5, 1}, {2600, 5, 5, 0},  {2601, 5, 5, 0}, {2500, 200, 200, 100},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(DriveTowardZero(row.position, 0, row.step), row.toward_zero) << row.position;
    EXPECT_EQ(DriveTowardMaximum(row.position, 2600, row.step), row.toward_maximum) << row.position;
  }
}

TEST(DriveChunk, SharesTheTimeOfTheLongerTravel) {
  const float normal = MotorStepDelayMs(MS_515PPS);
  const struct {
    int32_t longest;
    int32_t amount;
    int32_t chunk;
    int32_t us;
  } rows[] = {
      {100, 100, 10, 19594}, {3, 3, 3, 5878},      {20, 10, 10, 39188},
      {5, 5, 5, 9797},       {200, 50, 10, 78376},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(DriveChunkTimeUs(row.longest, row.amount, row.chunk, normal), row.us)
        << row.longest << "/" << row.amount;
  }
}

class Drive : public testing::Test {
 protected:
  void SetUp() override {
    testing::internal::CaptureStdout();
    apply_lens_profile(MFZ_PROFILE_HERON);
    set_limits();
    testing::internal::GetCapturedStdout();
    g_mfz.focus_req = DRIVE_IDLE;
    g_mfz.zoom_req = DRIVE_IDLE;
    g_mfz.posZoom = 0;
    g_mfz.posFocus = 200;
  }

  // One tick; returns what it wrote. It takes `at_least`.
  Lines Tick(microseconds at_least) {
    const auto begin = steady_clock::now();
    drive_step();
    EXPECT_GE(steady_clock::now() - begin, at_least);
    return line_.TakeWrites();
  }

  LensLine line_;
};

TEST_F(Drive, IdleDoesNothing) {
  EXPECT_EQ(Tick(microseconds(0)), Lines{});
}

TEST_F(Drive, ZoomTakesTheFocusAlongAndIsSpreadOverItsTime) {
  set_zoom_drive_step(-127);
  g_mfz.zoom_req = DRIVE_TOWARD_MAXIMUM;
  Lines expected = {"A5 40 0D FF F6 E7"};
  expected.insert(expected.end(), 10, "A5 40 0C FF F6 E6");
  EXPECT_EQ(Tick(microseconds(195'940)), expected);
  EXPECT_EQ(g_mfz.posZoom, 100);
  EXPECT_EQ(g_mfz.posFocus, 210);
  EXPECT_EQ(g_mfz.zoom_req, DRIVE_TOWARD_MAXIMUM);
}

TEST_F(Drive, ZoomWaitsForALongerFocusTravel) {
  set_zoom_drive_step(1);  // 5 steps
  g_mfz.zoom_req = DRIVE_TOWARD_ZERO;
  g_mfz.posZoom = 8;
  g_mfz.posFocus = 100;
  EXPECT_EQ(Tick(microseconds(195'930)), (Lines{"A5 40 0D FF 9C 8D", "A5 40 0C 00 05 F6"}));
  EXPECT_EQ(g_mfz.posZoom, 3);
  EXPECT_EQ(g_mfz.posFocus, 200);

  EXPECT_EQ(Tick(microseconds(5'878)), (Lines{"A5 40 0D 00 00 F2", "A5 40 0C 00 03 F4"}));
  EXPECT_EQ(g_mfz.posZoom, 0);
  EXPECT_EQ(Tick(microseconds(0)), Lines{});
}

TEST_F(Drive, ZoomEndsWithTheCurve) {
  g_mfz.zoom_req = DRIVE_TOWARD_MAXIMUM;
  g_mfz.posZoom = 1345;
  g_mfz.posFocus = 2245;
  EXPECT_EQ(Tick(microseconds(39'180)), (Lines{"A5 40 0D FF EC DD", "A5 40 0C FF FB EB"}));
  EXPECT_EQ(g_mfz.posZoom, 1350);
  EXPECT_EQ(g_mfz.posFocus, 2265);
  EXPECT_EQ(Tick(microseconds(0)), Lines{});
}

TEST_F(Drive, ZoomWithoutACurveLeavesTheFocusAlone) {
  g_mfz.tracking_valid = 0;
  set_zoom_drive_step(25);  // 10 steps
  g_mfz.zoom_req = DRIVE_TOWARD_MAXIMUM;
  EXPECT_EQ(Tick(microseconds(19'594)), Lines{"A5 40 0C FF F6 E6"});
  EXPECT_EQ(g_mfz.posFocus, 200);
}

TEST_F(Drive, FocusStopsAtItsMaximum) {
  g_mfz.focus_req = DRIVE_TOWARD_MAXIMUM;
  g_mfz.posFocus = 2593;
  EXPECT_EQ(Tick(microseconds(9'797)), Lines{"A5 40 0D FF FB EC"});
  EXPECT_EQ(Tick(microseconds(3'918)), Lines{"A5 40 0D FF FE EF"});
  EXPECT_EQ(g_mfz.posFocus, 2600);
  EXPECT_EQ(Tick(microseconds(0)), Lines{});
  EXPECT_EQ(g_mfz.focus_req, DRIVE_TOWARD_MAXIMUM);
}

TEST_F(Drive, FocusGoesBeforeZoom) {
  set_zoom_drive_step(1);
  g_mfz.focus_req = DRIVE_TOWARD_ZERO;
  g_mfz.zoom_req = DRIVE_TOWARD_MAXIMUM;
  // The focus key takes the focus off the curve; the zoom's tracking puts it back.
  EXPECT_EQ(Tick(microseconds(9'797 + 9'797)),
            (Lines{"A5 40 0D 00 05 F7", "A5 40 0D FF FB EC", "A5 40 0C FF FB EB"}));
  EXPECT_EQ(g_mfz.posFocus, 200);
  EXPECT_EQ(g_mfz.posZoom, 5);
}

}  // namespace
