// Movement of the lens: positions, step rates, frames, drives, and the descent of a search.
#include <optional>

#include "lens/drive.h"
#include "lens/focus_search.h"
#include "lens/i2m_dispatch.h"
#include "lens/lens_profile.h"
#include "lens/mfz_state.h"
#include "lens/motor.h"
#include "lens/position.h"
#include "lens_line.h"
#include "relay/mode_pass.h"
#include "tests/support.h"

namespace {

using Lines = std::vector<std::string>;

constexpr std::span<const ZfEntry> kCurves[] = {ZFTABLE_KESTREL, ZFTABLE_HERON, ZFTABLE_OSPREY};

// The focus on the curve; nullopt beyond its end.
std::optional<int32_t> FocusAt(std::span<const ZfEntry> table, int32_t zoom) {
  int32_t focus = 0;
  if (!TrackingFocus(table, zoom, &focus)) return std::nullopt;
  return focus;
}

// Between two entries, the curve deviates from the straight line by less than a step, toward the
// lower entry. This determines the focus for each zoom.
TEST(Tracking, InterpolatesLinearlyBetweenEntries) {
  for (const std::span<const ZfEntry> table : kCurves) {
    SCOPED_TRACE(table.back().zoom);
    for (size_t i = 0; i + 1 < table.size(); ++i) {
      const ZfEntry& from = table[i];
      const int32_t run = table[i + 1].zoom - from.zoom;
      const int32_t rise = table[i + 1].focus - from.focus;
      for (int32_t steps = 0; steps <= run; ++steps) {
        const int32_t focus = FocusAt(table, from.zoom + steps).value_or(-1);
        const double off = from.focus + static_cast<double>(rise) * steps / run - focus;
        EXPECT_GT(rise < 0 ? -off : off, -1e-9) << from.zoom + steps;
        EXPECT_LT(rise < 0 ? -off : off, 1 - 1e-9) << from.zoom + steps;
      }
    }
  }
}

TEST(Tracking, IsFlatBelowZeroAndForOneSpacingPastTheEnd) {
  for (const std::span<const ZfEntry> table : kCurves) {
    SCOPED_TRACE(table.back().zoom);
    for (const int32_t zoom : {-1, -50, -51, -32768})
      EXPECT_EQ(FocusAt(table, zoom), table.front().focus) << zoom;
    const ZfEntry& last = table.back();
    EXPECT_EQ(FocusAt(table, last.zoom + TRACKING_SPACING - 1), last.focus);
    for (const int32_t beyond : {TRACKING_SPACING, 30000})
      EXPECT_EQ(FocusAt(table, last.zoom + beyond), std::nullopt) << beyond;
  }
}

// A weighted sum of each curve detects any wrong entry.
TEST(Tracking, CurvesHaveTheirMeasuredValues) {
  std::vector<int32_t> sums;
  for (const std::span<const ZfEntry> table : kCurves) {
    sums.push_back(0);
    for (const ZfEntry& entry : table)
      sums.back() += entry.focus * (entry.zoom / TRACKING_SPACING + 1);
  }
  EXPECT_EQ(sums, (std::vector<int32_t>{1015185, 453195, 399420}));
}

TEST(Position, KeepsTheLowSixteenBits) {
  const std::tuple<int16_t, int32_t, int16_t> positions[] = {
      {100, -140, -40}, {32767, 1, -32768}, {-32768, -1, 32767},  {0, 65536, 0},
      {0, 65535, -1},   {1, 2147483647, 0}, {-1, -2147483647, 0}, {0, 40000, -25536},
  };
  for (const auto& [from, steps, to] : positions)
    EXPECT_EQ(PositionAfter(from, steps), to) << from << " + " << steps;
  const std::tuple<int32_t, bool, uint16_t> moves[] = {
      {-4, false, 0xFFFC},      {4, true, 0xFFFC},  {-2600, true, 0x0A28},
      {0x12345, false, 0x2345}, {0x10000, true, 0}, {INT32_MIN, true, 0},
  };
  for (const auto& [steps, inverted, value] : moves)
    EXPECT_EQ(MoveValue(steps, inverted), value) << steps;
  for (const auto& [text, position] :
       {std::pair("- 5", 0), {"0x10", 0}, {"12abc", 12}, {"999999999999999", -1530494977}})
    EXPECT_EQ(PositionFromText(text), position) << text;
}

class LensPosition : public testing::Test {
 protected:
  void Use(const MfzProfile& profile, const char* printed) {
    support::OnStdout([&] { apply_lens_profile(profile); });
    EXPECT_EQ(support::OnStdout(set_limits), printed);
  }

  LensLine line_;
};

TEST_F(LensPosition, TakesItsLimitsFromTheCurve) {
  MfzProfile profile = MFZ_PROFILE_HERON;
  const std::tuple<size_t, const char*, int, int> rows[] = {
      {28, "zftable_len=28, zoom:0~1350, focus:0~2600\n", 1, 1350},
      {2, "zftable_len=2, zoom:0~50, focus:0~2600\n", 1, 50},
      {1, "invalid zftable[] !!! at least 2 entries are required\n", 0, 1400},
  };
  for (const auto& [entries, printed, valid, zoom] : rows) {
    profile.zftable = profile.zftable.first(entries);
    Use(profile, printed);
    EXPECT_EQ(g_mfz.tracking_valid, valid);
    EXPECT_EQ(g_mfz.zoom_minimum, 0);
    EXPECT_EQ(g_mfz.zoom_maximum, zoom);
    EXPECT_EQ(g_mfz.focus_maximum, 2600);
  }
}

TEST_F(LensPosition, MovesInTheDirectionOfTheMotor) {
  Use(MFZ_PROFILE_KESTREL, "zftable_len=48, zoom:0~2350, focus:0~3060\n");
  mfz_move(MFZ_AXIS_ZOOM, 10);
  mfz_move(MFZ_AXIS_FOCUS, 10);
  EXPECT_EQ(line_.TakeWrites(), (Lines{"A5 40 0C 00 0A FB", "A5 40 0D FF F6 E7"}));
}

TEST_F(LensPosition, KeepsTrackingWithinTheFocusLimits) {
  const struct {
    int32_t zoom, focus, minimum, maximum, delta;
    Lines writes;
  } rows[] = {
      {75, 0, 0, 2600, 205, {"A5 40 0D FF 33 24"}},
      {100, 2600, 0, 2600, -2390, {"A5 40 0D 09 56 51"}},
      {1350, 2265, 0, 2600, 0, {"A5 40 0D 00 00 F2"}},
      {1400, 0, 0, 2600, 0, {}},
      {1350, 900, 0, 1000, 100, {"A5 40 0D FF 9C 8D"}},
      {0, 900, 300, 1000, -600, {"A5 40 0D 02 58 4C"}},
  };
  Use(MFZ_PROFILE_HERON, "zftable_len=28, zoom:0~1350, focus:0~2600\n");
  g_mfz.posFocus = 77;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.zoom);
    g_mfz.focus_minimum = row.minimum;
    g_mfz.focus_maximum = row.maximum;
    EXPECT_EQ(track_focus(row.zoom, row.focus), row.delta);
    EXPECT_EQ(line_.TakeWrites(), row.writes);
  }
  EXPECT_EQ(g_mfz.posFocus, 77);
}

TEST(MotorTime, IsTruncatedSinglePrecision) {
  const float normal = MotorStepDelayMs(MS_515PPS);
  EXPECT_EQ(MotorTimeMs(1, normal), 1);
  EXPECT_EQ(MotorTimeMs(50, normal), 97);
  EXPECT_EQ(MotorTimeMs(3060, MotorStepDelayMs(MS_793PPS)), 3925);
  EXPECT_EQ(MotorTimeMs(2600, MotorStepDelayMs(MS_1082PPS)), 2442);
  for (const auto& [steps, us] :
       {std::pair(0, 0), {1, 1959}, {5, 9797}, {10, 19594}, {200, 391880}})
    EXPECT_EQ(MotorTimeUs(steps, normal), us) << steps;
}

TEST(LensProfile, EachHasABannerAndAResetSpeed) {
  const std::tuple<const MfzProfile*, std::string, float> rows[] = {
      {&MFZ_PROFILE_KESTREL, "KESTREL", 1.2827F},
      {&MFZ_PROFILE_HERON, "HERON", 1.2827F},
      {&MFZ_PROFILE_OSPREY, "OSPREY", 0.9393F}};
  for (const auto& [profile, name, reset_ms] : rows) {
    EXPECT_EQ(support::OnStdout([to = profile] { apply_lens_profile(*to); }),
              "MFZ parameter for X_PCODE_" + name + "_V1\nDELAY_MS_NORMAL= 1.96\n");
    EXPECT_FLOAT_EQ(g_mfz.DELAY_MS_RESET, reset_ms);
    // The curve must lie within the travel of a reset.
    EXPECT_LT(profile->zftable.back().zoom, profile->zoom_maximum);
    EXPECT_LT(profile->zftable.back().focus, profile->focus_maximum);
  }
}

TEST(SetMotorSpeed, SendsTheCodeAndPrintsThePrescaler) {
  const std::tuple<MotorSpeedIndex, uint8_t, uint8_t, const char*, std::string> rows[] = {
      {MS_793PPS, 1, 2, "A5 40 02 00 10 F7",
       "[MotorSpeed] MS_793PPS.   prescaler = 11000-(2*256) = 10488\n"},
      {MS_438PPS, 0x80, 255, "A5 40 02 00 40 27",
       "[MotorSpeed] MS_438PPS.   prescaler = 11000-(255*256) = -54280\n"},
      {MS_1082PPS, 0, 0, "A5 40 02 00 00 E7",
       "[MotorSpeed] MS_1082PPS.   prescaler = 11000+(0*256) = 11000\n"},
  };
  LensLine line;
  for (const auto& [speed, sign, size, write, printed] : rows) {
    line.Reply({0, 0, 0, sign, size, 0});
    std::string said;
    const auto set = [to = speed] { set_motor_speed(to); };
    support::ExpectTakes(MOTOR_SPEED_SETTLE_MS, [&] { said = support::OnStdout(set); });
    EXPECT_EQ(said, printed);
    EXPECT_EQ(line.TakeWrites(), (Lines{write, "A5 41 02 00 00 E8"}));
  }
}

TEST(I2mReadReply, ChecksOnlyTheByteCount) {
  EXPECT_EQ(i2m_write(I2M_ADDR_ZOOM_MOVE, 1), -1);  // without a line
  LensLine line;
  I2mFrame reply;
  line.Reply({1, 2, 3, 4, 5, 6});
  EXPECT_TRUE(i2m_read_reply(&reply));
  EXPECT_EQ(reply, (I2mFrame{1, 2, 3, 4, 5, 6}));
  line.Reply({I2M_SYNC, I2M_READ, 1, 0x81, 5});
  support::ExpectTakes(
      I2M_REPLY_TIMEOUT_S * 1000, [&] { EXPECT_FALSE(i2m_read_reply(&reply)); }, 1400);
}

TEST(I2mDispatch, PrintsRegisterAndValue) {
  const std::pair<sim::Bytes, const char*> rows[] = {
      // After two sync bytes, the frame begins at the second.
      {{0xA5, 0xA5, 0x41, 0x01, 0x02, 0x03, 0x09},
       "RX parsed: A5,41,01,02,03,EC, ==> [I2M_ADDR_VERSION]     0x02, 0x03\n"},
      {{0xA5, 0x40, 0x02, 0x00, 0x3C, 0x23},
       "RX parsed: A5,40,02,00,3C,23, ==> [I2M_ADDR_MOTOR_SPEED] 0x00, 0x3C\n"},
      {{0xA5, 0x40, 0x0A, 0x00, 0x02, 0xF1},
       "RX parsed: A5,40,0A,00,02,F1, ==> [I2M_ADDR_FOCUS_JOG]   0x00, 0x02\n"},
      {{0xA5, 0x41, 0x23, 0x00, 0x01, 0x0A},
       "RX parsed: A5,41,23,00,01,0A, ==> [I2M_ADDR_AF_MODE]     0x00, 0x01\n"},
      {{0xA5, 0x40, 0x00, 0xFF, 0xAB, 0x8F},
       "RX parsed: A5,40,00,FF,AB,8F, ==> [UNDEFINED CMD:0x00]   0xFF, 0xAB\n"},
  };
  LensLine line;
  g_mfz.parser = {};
  for (const auto& row : rows) {
    const auto parse = [&] { std::for_each(row.first.begin(), row.first.end(), i2m_parse_byte); };
    EXPECT_EQ(support::OnStdout(parse), row.second);
  }
  EXPECT_TRUE(line.TakeWrites().empty());
}

// The largest magnitude of a value for each index, and the steps of that index.
TEST(DriveSpeed, FollowsTheMagnitudeOfTheValue) {
  const std::tuple<int, int32_t, int32_t> speeds[] = {
      {11, 5, 2},   {24, 5, 2},    {37, 10, 2},   {50, 10, 2},     {62, 10, 5},     {75, 10, 5},
      {88, 50, 10}, {101, 50, 10}, {114, 50, 50}, {126, 100, 100}, {128, 100, 200},
  };
  int index = 0;
  int size = 1;
  for (const auto& [last, zoom_step, focus_step] : speeds) {
    for (; size <= last; ++size) {
      for (const int value : {std::min(size, INT8_MAX), -size}) {
        EXPECT_EQ(DriveSpeedIndex(static_cast<int8_t>(value)), index) << value;
        set_zoom_drive_step(static_cast<int8_t>(value));
        set_focus_drive_step(static_cast<int8_t>(value));
        EXPECT_EQ(g_mfz.zoom_drive_step, zoom_step) << value;
        EXPECT_EQ(g_mfz.focus_drive_step, focus_step) << value;
      }
    }
    ++index;
  }
}

TEST(DriveChunk, SharesTheTimeOfTheLongerTravel) {
  const float normal = MotorStepDelayMs(MS_515PPS);
  EXPECT_EQ(DriveChunkTimeUs(3, 3, 3, normal), 5878);
  EXPECT_EQ(DriveChunkTimeUs(200, 50, 10, normal), 78376);
}

class Drive : public testing::Test {
 protected:
  void SetUp() override {
    support::OnStdout([] {
      apply_lens_profile(MFZ_PROFILE_HERON);
      drive_init();
      set_limits();
    });
  }

  LensLine line_;
};

// Position of the lens, and the request.
struct Start {
  uint8_t zoom_req, focus_req;
  int8_t zoom_value;
  int16_t zoom, focus;
  int32_t tracking;
};

// One tick: its writes, its minimum duration in microseconds, and the position after it.
using TickRow = std::tuple<Lines, double, int, int>;

TEST_F(Drive, MovesTickByTick) {
  constexpr uint8_t kIdle = DRIVE_IDLE;
  constexpr uint8_t kUp = DRIVE_TOWARD_MAXIMUM;
  constexpr uint8_t kDown = DRIVE_TOWARD_ZERO;
  Lines spread(11, "A5 40 0C FF F6 E6");
  spread[0] = "A5 40 0D FF F6 E7";
  const std::pair<Start, std::vector<TickRow>> rows[] = {
      {{kIdle, kIdle, 1, 0, 200, 1}, {{{}, 0, 0, 200}}},
      // The focus follows, and the zoom move is spread over its duration.
      {{kUp, kIdle, -127, 0, 200, 1}, {{spread, 195'940, 100, 210}}},
      // The zoom waits for a longer focus move.
      {{kDown, kIdle, 1, 8, 100, 1},
       {{{"A5 40 0D FF 9C 8D", "A5 40 0C 00 05 F6"}, 195'930, 3, 200},
        {{"A5 40 0D 00 00 F2", "A5 40 0C 00 03 F4"}, 5'878, 0, 200},
        {{}, 0, 0, 200}}},
      // Without a curve.
      {{kUp, kIdle, 25, 0, 200, 0}, {{{"A5 40 0C FF F6 E6"}, 19'594, 10, 200}}},
      {{kIdle, kUp, 1, 0, 2593, 1},
       {{{"A5 40 0D FF FB EC"}, 9'797, 0, 2598},
        {{"A5 40 0D FF FE EF"}, 3'918, 0, 2600},
        {{}, 0, 0, 2600}}},
      // The focus key moves the focus off the curve; the tracking of the zoom moves it back.
      {{kUp, kDown, 1, 0, 200, 1},
       {{{"A5 40 0D 00 05 F7", "A5 40 0D FF FB EC", "A5 40 0C FF FB EB"}, 2 * 9'797, 5, 200}}},
  };
  for (const auto& [start, ticks] : rows) {
    SCOPED_TRACE(start.zoom_value);
    set_zoom_drive_step(start.zoom_value);
    g_mfz.zoom_req = start.zoom_req;
    g_mfz.focus_req = start.focus_req;
    g_mfz.posZoom = start.zoom;
    g_mfz.posFocus = start.focus;
    g_mfz.tracking_valid = start.tracking;
    for (const auto& [writes, us, zoom, focus] : ticks) {
      support::ExpectTakes(us / 1000, drive_step);
      EXPECT_EQ(line_.TakeWrites(), writes);
      EXPECT_EQ(g_mfz.posZoom, zoom);
      EXPECT_EQ(g_mfz.posFocus, focus);
    }
    EXPECT_EQ(g_mfz.zoom_req, start.zoom_req);
    EXPECT_EQ(g_mfz.focus_req, start.focus_req);
  }
}

// The descent in steps of 50, without the scan, which queries the camera daemon.
TEST(FocusSearch, DescendsToTheLowerEndButNeverBelowZero) {
  const std::tuple<int16_t, int16_t, int16_t> rows[] = {
      {150, 200, 0},    // the last step fits exactly
      {149, 200, 49},   // the last step does not fit
      {500, 100, 400},  // a step ends at the lower end
      {530, 120, 380},  // a step passes the lower end
      {49, 100, 49},
  };
  LensLine line;
  support::OnStdout([] {
    apply_lens_profile(MFZ_PROFILE_HERON);
    set_limits();
  });
  for (const auto& [from, half_width, lowest] : rows) {
    g_mfz.posFocus = from;
    focus_search_start(half_width);
    EXPECT_TRUE(sim::WaitUntil([] {
      focus_search_step();
      return g_mfz.af_state == AF_SCAN;
    }));
    EXPECT_EQ(g_mfz.posFocus, lowest) << from;
  }
  for (const int unused : {2, 3, AF_FINISH + 1, UINT8_MAX}) {
    g_mfz.af_state = static_cast<uint8_t>(unused);
    focus_search_step();
    EXPECT_EQ(g_mfz.af_state, unused);
    EXPECT_EQ(focus_search_wait_us(), MODE_PASS_NO_WORK);
  }
  focus_search_stop();
}

}  // namespace
