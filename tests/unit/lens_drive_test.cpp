#include "lens/drive.h"

#include "lens/mfz_state.h"
#include "lens/motor.h"
#include "lens/position.h"
#include "lens_line.h"
#include "tests/support.h"

namespace {

using Lines = std::vector<std::string>;

// First and last size of a command's value that gives an index, and the steps that go with it.
struct SpeedRow {
  int first, last;
  int32_t zoom_step, focus_step;
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
    int32_t position, step, toward_zero, toward_maximum;
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
    int32_t longest, amount, chunk, us;
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
    support::OnStdout([] {
      apply_lens_profile(MFZ_PROFILE_HERON);
      set_limits();
    });
  }

  // One tick; returns what it wrote. It takes at least `us`.
  Lines Tick(double us) {
    support::ExpectTakes(us / 1000, drive_step);
    return line_.TakeWrites();
  }

  LensLine line_;
};

// Where the lens is and what is asked of it.
struct Start {
  uint8_t zoom_req, focus_req;
  int8_t zoom_value;
  int16_t zoom, focus;
  int32_t tracking;
};

// One tick: what it writes, the microseconds that it takes at least, where the lens is then.
struct TickRow {
  Lines writes;
  double us;
  int zoom, focus;
};

TEST_F(Drive, MovesTickByTick) {
  constexpr uint8_t kIdle = DRIVE_IDLE;
  constexpr uint8_t kUp = DRIVE_TOWARD_MAXIMUM;
  constexpr uint8_t kDown = DRIVE_TOWARD_ZERO;
  Lines spread(11, "A5 40 0C FF F6 E6");
  spread[0] = "A5 40 0D FF F6 E7";
  const struct {
    const char* legend;
    Start start;
    std::vector<TickRow> ticks;
  } rows[] = {
      {"idle", {kIdle, kIdle, 1, 0, 200, 1}, {{{}, 0, 0, 200}}},
      {"zoom takes the focus along, spread over its time",
       {kUp, kIdle, -127, 0, 200, 1},
       {{spread, 195'940, 100, 210}}},
      {"zoom waits for a longer focus travel",
       {kDown, kIdle, 1, 8, 100, 1},
       {{{"A5 40 0D FF 9C 8D", "A5 40 0C 00 05 F6"}, 195'930, 3, 200},
        {{"A5 40 0D 00 00 F2", "A5 40 0C 00 03 F4"}, 5'878, 0, 200},
        {{}, 0, 0, 200}}},
      {"no curve leaves the focus alone",
       {kUp, kIdle, 25, 0, 200, 0},
       {{{"A5 40 0C FF F6 E6"}, 19'594, 10, 200}}},
      {"focus stops at its maximum",
       {kIdle, kUp, 1, 0, 2593, 1},
       {{{"A5 40 0D FF FB EC"}, 9'797, 0, 2598},
        {{"A5 40 0D FF FE EF"}, 3'918, 0, 2600},
        {{}, 0, 0, 2600}}},
      // The focus key takes the focus off the curve; the zoom's tracking puts it back.
      {"focus goes before zoom",
       {kUp, kDown, 1, 0, 200, 1},
       {{{"A5 40 0D 00 05 F7", "A5 40 0D FF FB EC", "A5 40 0C FF FB EB"}, 2 * 9'797, 5, 200}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    set_zoom_drive_step(row.start.zoom_value);
    g_mfz.zoom_req = row.start.zoom_req;
    g_mfz.focus_req = row.start.focus_req;
    g_mfz.posZoom = row.start.zoom;
    g_mfz.posFocus = row.start.focus;
    g_mfz.tracking_valid = row.start.tracking;
    for (const TickRow& tick : row.ticks) {
      EXPECT_EQ(Tick(tick.us), tick.writes);
      EXPECT_EQ(g_mfz.posZoom, tick.zoom);
      EXPECT_EQ(g_mfz.posFocus, tick.focus);
    }
    EXPECT_EQ(g_mfz.zoom_req, row.start.zoom_req);
    EXPECT_EQ(g_mfz.focus_req, row.start.focus_req);
  }
}

}  // namespace
