#include "lens/position.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "lens/mfz_state.h"
#include "lens/motor.h"
#include "lens_line.h"

namespace {

using Lines = std::vector<std::string>;

struct Curve {
  const char* name;
  std::span<const ZfEntry> table;
};
constexpr Curve kCurves[] = {
    {"KESTREL", ZFTABLE_KESTREL}, {"HERON", ZFTABLE_HERON}, {"OSPREY", ZFTABLE_OSPREY}};

// The curve's focus, or nothing above its end.
std::optional<int32_t> FocusAt(std::span<const ZfEntry> table, int32_t zoom) {
  int32_t focus = 0;
  if (!TrackingFocus(table, zoom, &focus)) return std::nullopt;
  return focus;
}

// Between two entries the curve runs from the one to the other without a step back, and stays
// less than a step off the straight line, on the lower entry's side of it.
TEST(Tracking, RunsStraightBetweenEntries) {
  for (const Curve& curve : kCurves) {
    SCOPED_TRACE(curve.name);
    for (size_t i = 0; i + 1 < curve.table.size(); ++i) {
      const ZfEntry& from = curve.table[i];
      const ZfEntry& to = curve.table[i + 1];
      const int32_t rise = to.focus - from.focus;
      const int32_t sign = rise < 0 ? -1 : 1;
      int32_t before = from.focus;
      for (int32_t zoom = from.zoom; zoom <= to.zoom; ++zoom) {
        const std::optional<int32_t> focus = FocusAt(curve.table, zoom);
        ASSERT_TRUE(focus.has_value());
        EXPECT_GE(sign * (*focus - before), 0) << zoom;
        const double line =
            from.focus + static_cast<double>(rise) * (zoom - from.zoom) / (to.zoom - from.zoom);
        EXPECT_LE(sign * (*focus - line), 1e-9) << zoom;
        EXPECT_GT(sign * (*focus - line), -1 + 1e-9) << zoom;
        before = *focus;
      }
    }
  }
}

TEST(Tracking, IsFlatBelowZeroAndForOneSpacingBehindTheEnd) {
  for (const Curve& curve : kCurves) {
    SCOPED_TRACE(curve.name);
    for (const int32_t zoom : {-1, -49, -50, -51, -1000, -32768})
      EXPECT_EQ(FocusAt(curve.table, zoom), curve.table.front().focus) << zoom;
    const ZfEntry& last = curve.table.back();
    for (const int32_t beyond : {0, 1, TRACKING_SPACING - 1})
      EXPECT_EQ(FocusAt(curve.table, last.zoom + beyond), last.focus) << beyond;
    for (const int32_t beyond : {TRACKING_SPACING, TRACKING_SPACING + 1, 30000})
      EXPECT_EQ(FocusAt(curve.table, last.zoom + beyond), std::nullopt) << beyond;
  }
}

TEST(Tracking, KnownPoints) {
  const struct {
    std::span<const ZfEntry> table;
    int32_t zoom;
    int32_t focus;
  } rows[] = {
      {ZFTABLE_HERON, 75, 205},     {ZFTABLE_HERON, 100, 210},    {ZFTABLE_HERON, 1399, 2265},
      {ZFTABLE_KESTREL, 51, 135},   {ZFTABLE_KESTREL, 55, 134},   {ZFTABLE_KESTREL, 60, 133},
      {ZFTABLE_KESTREL, 450, 90},   {ZFTABLE_KESTREL, 1500, 490}, {ZFTABLE_KESTREL, 2350, 2320},
      {ZFTABLE_OSPREY, 1325, 1950}, {ZFTABLE_OSPREY, 725, 540},
  };
  for (const auto& row : rows)
    EXPECT_EQ(FocusAt(row.table, row.zoom), row.focus) << row.zoom;
}

TEST(Position, WrapsInSixteenBits) {
  const struct {
    int16_t from;
    int32_t steps;
    int16_t to;
  } rows[] = {
      {0, 0, 0},      {100, -140, -40},   {32767, 1, -32768}, {-32768, -1, 32767},  {0, 65536, 0},
      {0, 65535, -1}, {0, 40000, -25536}, {1, 2147483647, 0}, {-1, -2147483647, 0},
  };
  for (const auto& row : rows)
    EXPECT_EQ(PositionAfter(row.from, row.steps), row.to) << row.from << " + " << row.steps;
}

TEST(Position, MoveValueKeepsTheLowSixteenBits) {
  const struct {
    int32_t steps;
    bool inverted;
    uint16_t value;
  } rows[] = {
      {4, false, 0x0004},    {-4, false, 0xFFFC},       {4, true, 0xFFFC},
      {-2600, true, 0x0A28}, {0, true, 0x0000},         {0x12345, false, 0x2345},
      {0x10000, true, 0},    {INT32_MIN, true, 0x0000}, {-32768, true, 0x8000},
  };
  for (const auto& row : rows)
    EXPECT_EQ(MoveValue(row.steps, row.inverted), row.value) << row.steps;
}

TEST(Position, TextIsReadLikeAnInteger) {
  const struct {
    const char* text;
    int32_t position;
  } rows[] = {
      {"120", 120},
      {" \t-7", -7},
      {"+5", 5},
      {"12abc", 12},
      {"", 0},
      {"abc", 0},
      {"- 5", 0},
      {"0x10", 0},
      {"070000", 70000},
      {"-1", -1},
      {"2147483647", 2147483647},
      {"4294967297", 1},
      {"999999999999999", -1530494977},
  };
  for (const auto& row : rows)
    EXPECT_EQ(PositionFromText(row.text), row.position) << row.text;
}

class LensPosition : public testing::Test {
 protected:
  void Use(const MfzProfile& profile, const char* printed) {
    testing::internal::CaptureStdout();
    apply_lens_profile(profile);
    testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    set_limits();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), printed);
  }

  LensLine line_;
};

TEST_F(LensPosition, LimitsComeFromTheCurve) {
  Use(MFZ_PROFILE_HERON, "zftable_len=28, zoom:0~1350, focus:0~2600\n");
  EXPECT_EQ(g_mfz.tracking_valid, 1);
  EXPECT_EQ(g_mfz.zoom_maximum, 1350);
  Use(MFZ_PROFILE_KESTREL, "zftable_len=48, zoom:0~2350, focus:0~3060\n");
  EXPECT_EQ(g_mfz.focus_maximum, 3060);

  MfzProfile short_curve = MFZ_PROFILE_OSPREY;
  short_curve.zftable = short_curve.zftable.first(1);
  Use(short_curve, "invalid zftable[] !!! at least 2 entries are required\n");
  EXPECT_EQ(g_mfz.tracking_valid, 0);
  EXPECT_EQ(g_mfz.zoom_minimum, 0);
  EXPECT_EQ(g_mfz.zoom_maximum, 1400);
  EXPECT_EQ(g_mfz.focus_maximum, 2600);

  MfzProfile two = MFZ_PROFILE_OSPREY;
  two.zftable = two.zftable.first(2);
  Use(two, "zftable_len=2, zoom:0~50, focus:0~2600\n");
  EXPECT_EQ(g_mfz.tracking_valid, 1);
}

TEST_F(LensPosition, MovesGoTheMotorsWay) {
  Use(MFZ_PROFILE_KESTREL, "zftable_len=48, zoom:0~2350, focus:0~3060\n");
  mfz_move(MFZ_AXIS_ZOOM, 10);
  mfz_move(MFZ_AXIS_FOCUS, 10);
  EXPECT_EQ(line_.TakeWrites(), (Lines{"A5 40 0C 00 0A FB", "A5 40 0D FF F6 E7"}));
  Use(MFZ_PROFILE_HERON, "zftable_len=28, zoom:0~1350, focus:0~2600\n");
  mfz_move(MFZ_AXIS_ZOOM, 10);
  mfz_move(MFZ_AXIS_FOCUS, -2600);
  EXPECT_EQ(line_.TakeWrites(), (Lines{"A5 40 0C FF F6 E6", "A5 40 0D 0A 28 24"}));
}

TEST_F(LensPosition, TrackingSendsTheFocusMove) {
  const struct {
    int32_t zoom;
    int32_t focus;
    int32_t delta;
    Lines writes;
  } rows[] = {
      {75, 0, 205, {"A5 40 0D FF 33 24"}},    {0, 200, 0, {"A5 40 0D 00 00 F2"}},
      {100, 200, 10, {"A5 40 0D FF F6 E7"}},  {100, 2600, -2390, {"A5 40 0D 09 56 51"}},
      {1350, 2265, 0, {"A5 40 0D 00 00 F2"}}, {1400, 0, 0, {}},
  };
  Use(MFZ_PROFILE_HERON, "zftable_len=28, zoom:0~1350, focus:0~2600\n");
  g_mfz.posFocus = 77;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.zoom);
    EXPECT_EQ(track_focus(row.zoom, row.focus), row.delta);
    EXPECT_EQ(line_.TakeWrites(), row.writes);
  }
  EXPECT_EQ(g_mfz.posFocus, 77);
}

TEST_F(LensPosition, TrackingStaysWithinTheFocusLimits) {
  Use(MFZ_PROFILE_HERON, "zftable_len=28, zoom:0~1350, focus:0~2600\n");
  g_mfz.focus_maximum = 1000;
  EXPECT_EQ(track_focus(1350, 900), 100);
  g_mfz.focus_minimum = 300;
  EXPECT_EQ(track_focus(0, 900), -600);
}

TEST_F(LensPosition, ResetDrivesBothMotorsIntoTheirEnds) {
  MfzProfile quick = MFZ_PROFILE_HERON;
  quick.zoom_maximum = 140;
  quick.focus_maximum = 26;
  Use(quick, "zftable_len=28, zoom:0~1350, focus:0~26\n");
  g_mfz.af_state = 5;
  g_mfz.posZoom = 100;
  g_mfz.posFocus = -20;
  line_.Reply({0, 0, 0, 0, 5, 0, 0, 0, 0, 1, 2, 0});
  testing::internal::CaptureStdout();
  reset_zf();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[MotorSpeed] MS_793PPS.   prescaler = 11000+(5*256) = 12280\n"
            "[Reset ZF] Focus:26step, Zoom:140step \n"
            "   sleep time: 140[step] * 1.28[mS] = 179[mS]\n"
            "   posZoom=0, posFocus=0\n"
            "[MotorSpeed] MS_515PPS.   prescaler = 11000-(2*256) = 10488\n");
  EXPECT_EQ(line_.TakeWrites(),
            (Lines{"A5 40 02 00 10 F7", "A5 41 02 00 00 E8", "A5 40 0D 00 1A 0C",
                   "A5 40 0C 00 8C 7D", "A5 40 02 00 30 17", "A5 41 02 00 00 E8"}));
  EXPECT_EQ(g_mfz.af_state, 0);
  EXPECT_EQ(g_mfz.posZoom, 0);
  EXPECT_EQ(g_mfz.posFocus, 0);
}

}  // namespace
