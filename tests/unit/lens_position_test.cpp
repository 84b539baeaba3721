#include "lens/position.h"

#include <optional>

#include "lens/mfz_state.h"
#include "lens/motor.h"
#include "lens_line.h"
#include "tests/support.h"

namespace {

using Lines = std::vector<std::string>;

constexpr std::span<const ZfEntry> kCurves[] = {ZFTABLE_KESTREL, ZFTABLE_HERON, ZFTABLE_OSPREY};

// The curve's focus, or nothing above its end.
std::optional<int32_t> FocusAt(std::span<const ZfEntry> table, int32_t zoom) {
  int32_t focus = 0;
  if (!TrackingFocus(table, zoom, &focus)) return std::nullopt;
  return focus;
}

// This and the next leave one focus for each zoom.
//
// Between two entries the curve runs from the one to the other without a step back, and stays
// less than a step off the straight line, on the lower entry's side of it.
TEST(Tracking, RunsStraightBetweenEntries) {
  for (const std::span<const ZfEntry> table : kCurves) {
    SCOPED_TRACE(table.back().zoom);
    for (size_t i = 0; i + 1 < table.size(); ++i) {
      const ZfEntry& from = table[i];
      const ZfEntry& to = table[i + 1];
      const int32_t rise = to.focus - from.focus;
      const int32_t sign = rise < 0 ? -1 : 1;
      int32_t before = from.focus;
      for (int32_t zoom = from.zoom; zoom <= to.zoom; ++zoom) {
        const std::optional<int32_t> focus = FocusAt(table, zoom);
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
  for (const std::span<const ZfEntry> table : kCurves) {
    SCOPED_TRACE(table.back().zoom);
    for (const int32_t zoom : {-1, -49, -50, -51, -1000, -32768})
      EXPECT_EQ(FocusAt(table, zoom), table.front().focus) << zoom;
    const ZfEntry& last = table.back();
    for (const int32_t beyond : {0, 1, TRACKING_SPACING - 1})
      EXPECT_EQ(FocusAt(table, last.zoom + beyond), last.focus) << beyond;
    for (const int32_t beyond : {TRACKING_SPACING, TRACKING_SPACING + 1, 30000})
      EXPECT_EQ(FocusAt(table, last.zoom + beyond), std::nullopt) << beyond;
  }
}

// A slip in any figure of a curve shows in its sum, in which the later ones count more often.
TEST(Tracking, CurvesAreAsTheyWereMeasured) {
  std::vector<int32_t> sums;
  for (const std::span<const ZfEntry> table : kCurves) {
    sums.push_back(0);
    for (const ZfEntry& entry : table)
      sums.back() += entry.focus * (entry.zoom / TRACKING_SPACING + 1);
  }
  EXPECT_EQ(sums, (std::vector<int32_t>{1015185, 453195, 399420}));
}

TEST(Position, WrapsInSixteenBits) {
  const std::tuple<int16_t, int32_t, int16_t> rows[] = {
      {0, 0, 0},      {100, -140, -40},   {32767, 1, -32768}, {-32768, -1, 32767},  {0, 65536, 0},
      {0, 65535, -1}, {0, 40000, -25536}, {1, 2147483647, 0}, {-1, -2147483647, 0},
  };
  for (const auto& [from, steps, to] : rows)
    EXPECT_EQ(PositionAfter(from, steps), to) << from << " + " << steps;
}

TEST(Position, MoveValueKeepsTheLowSixteenBits) {
  const std::tuple<int32_t, bool, uint16_t> rows[] = {
      {4, false, 0x0004},    {-4, false, 0xFFFC},       {4, true, 0xFFFC},
      {-2600, true, 0x0A28}, {0, true, 0x0000},         {0x12345, false, 0x2345},
      {0x10000, true, 0},    {INT32_MIN, true, 0x0000}, {-32768, true, 0x8000},
  };
  for (const auto& [steps, inverted, value] : rows)
    EXPECT_EQ(MoveValue(steps, inverted), value) << steps;
}

TEST(Position, TextIsReadLikeAnInteger) {
  const std::pair<const char*, int32_t> rows[] = {
      {" \t-7", -7},     {"+5", 5},         {"12abc", 12},
      {"", 0},           {"- 5", 0},        {"0x10", 0},
      {"070000", 70000}, {"4294967297", 1}, {"999999999999999", -1530494977},
  };
  for (const auto& [text, position] : rows)
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
    int32_t zoom, focus, delta;
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

// What is printed meanwhile, and that it takes its time, shows in the system tests.
TEST_F(LensPosition, ResetDrivesBothMotorsIntoTheirEnds) {
  MfzProfile quick = MFZ_PROFILE_HERON;
  quick.zoom_maximum = 140;
  quick.focus_maximum = 26;
  Use(quick, "zftable_len=28, zoom:0~1350, focus:0~26\n");
  g_mfz.af_state = 5;
  g_mfz.posZoom = 100;
  g_mfz.posFocus = -20;
  line_.Reply({0, 0, 0, 0, 5, 0, 0, 0, 0, 1, 2, 0});
  support::OnStdout(reset_zf);
  EXPECT_EQ(line_.TakeWrites(),
            (Lines{"A5 40 02 00 10 F7", "A5 41 02 00 00 E8", "A5 40 0D 00 1A 0C",
                   "A5 40 0C 00 8C 7D", "A5 40 02 00 30 17", "A5 41 02 00 00 E8"}));
  EXPECT_EQ(g_mfz.af_state, 0);
  EXPECT_EQ(g_mfz.posZoom, 0);
  EXPECT_EQ(g_mfz.posFocus, 0);
}

}  // namespace
