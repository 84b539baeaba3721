#include "lens/motor.h"

#include "lens_line.h"
#include "tests/support.h"

namespace {

using Lines = std::vector<std::string>;

TEST(MotorTime, IsSinglePrecisionAndCut) {
  const float normal = MotorStepDelayMs(MS_515PPS);
  const float heron_reset = MotorStepDelayMs(MS_793PPS);
  const float osprey_reset = MotorStepDelayMs(MS_1082PPS);
  const std::tuple<int32_t, float, int32_t> in_ms[] = {
      {1, normal, 1},
      {10, normal, 19},
      {50, normal, 97},
      {3060, heron_reset, 3925},
      {2600, osprey_reset, 2442},
  };
  for (const auto& [steps, delay_ms, ms] : in_ms)
    EXPECT_EQ(MotorTimeMs(steps, delay_ms), ms) << steps;

  const std::pair<int32_t, int32_t> in_us[] = {{0, 0},      {1, 1959},   {5, 9797},
                                               {10, 19594}, {50, 97970}, {200, 391880}};
  for (const auto& [steps, us] : in_us)
    EXPECT_EQ(MotorTimeUs(steps, normal), us) << steps;
}

TEST(LensProfile, EachHasItsBannerAndItsResetSpeed) {
  const struct {
    const MfzProfile* profile;
    const char* name;
    float reset_ms;
  } rows[] = {{&MFZ_PROFILE_KESTREL, "KESTREL", 1.2827F},
              {&MFZ_PROFILE_HERON, "HERON", 1.2827F},
              {&MFZ_PROFILE_OSPREY, "OSPREY", 0.9393F}};
  for (const auto& row : rows) {
    EXPECT_EQ(
        support::OnStdout([&] { apply_lens_profile(*row.profile); }),
        std::string("MFZ parameter for X_PCODE_") + row.name + "_V1\nDELAY_MS_NORMAL= 1.96\n");
    EXPECT_FLOAT_EQ(g_lens.DELAY_MS_RESET, row.reset_ms);
    // The curve must fit the travels that a reset drives.
    EXPECT_LT(g_lens.profile.zftable.back().zoom, g_lens.profile.zoom_maximum);
    EXPECT_LT(g_lens.profile.zftable.back().focus, g_lens.profile.focus_maximum);
  }
}

TEST(SetMotorSpeed, SendsTheCodeAndShowsThePrescaler) {
  const struct {
    MotorSpeedIndex speed;
    uint8_t sign, size;
    const char* write;
    const char* printed;
  } rows[] = {
      {MS_793PPS, 1, 2, "A5 40 02 00 10 F7",
       "[MotorSpeed] MS_793PPS.   prescaler = 11000-(2*256) = 10488\n"},
      {MS_438PPS, 0x80, 255, "A5 40 02 00 40 27",
       "[MotorSpeed] MS_438PPS.   prescaler = 11000-(255*256) = -54280\n"},
      {MS_1082PPS, 0, 0, "A5 40 02 00 00 E7",
       "[MotorSpeed] MS_1082PPS.   prescaler = 11000+(0*256) = 11000\n"},
      {MS_625PPS, 0, 255, "A5 40 02 00 20 07",
       "[MotorSpeed] MS_625PPS.   prescaler = 11000+(255*256) = 76280\n"},
  };
  LensLine line;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.printed);
    line.Reply({0, 0, 0, row.sign, row.size, 0});
    support::ExpectTakes(MOTOR_SPEED_SETTLE_MS, [&] {
      EXPECT_EQ(support::OnStdout([&] { set_motor_speed(row.speed); }), row.printed);
    });
    EXPECT_EQ(line.TakeWrites(), (Lines{row.write, "A5 41 02 00 00 E8"}));
  }
}

}  // namespace
