#include "relay/ptz_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "module/hd_mode.h"
#include "module/sd_mode.h"
#include "sim/peers.h"

namespace {

using sim::Control;

PtzSequence Translate(const char* model, const CameraControl& control) {
  return PtzTranslate(PtzTableForModel(model), control);
}

auto IsRelayed(const char* model) {
  return [model](const CameraControl& control) { return Translate(model, control).count > 0; };
}

// Tests all parameters, whole model names only, and the tables of the camera modules, too.
TEST(PtzTables, TranslatesOnlyTheCodesOfTheModel) {
  const std::vector<int> others = {0x1012, 0x2000, 0x2001, 0x2002, 0x2005,
                                   0x2007, 0x2008, 0x2009, 0x200A};
  using Answers = std::function<bool(const CameraControl& control)>;
  const std::tuple<const char*, Answers, std::vector<int>> rows[] = {
      {"QB-610", IsRelayed("QB-610"), {0x2000, 0x2005, 0x2007, 0x2008, 0x2009, 0x200A}},
      {"QB-620", IsRelayed("QB-620"), {0x1005, 0x1006, 0x1009, 0x1012, 0x1020, 0x1021, 0x1022,
                                       0x1060, 0x1061, 0x1072, 0x1073, 0x1091, 0x1092, 0x2000,
                                       0x2001, 0x2002, 0x2005, 0x2007, 0x2008, 0x2009, 0x200A,
                                       0x4001, 0x4002, 0x4003, 0x4004, 0xFFFF}},
      {"QB-6200", IsRelayed("QB-6200"), others},
      {"qb-620", IsRelayed("qb-620"), others},
      {"QB-210",
       [](const CameraControl& control) { return SdTranslate(control).count > 0; },
       {0x2000, 0x2002, 0x2005, 0x2007, 0x2008, 0x2009, 0x200A}},
      {"QB-310",
       [](const CameraControl& control) {
         HdSetting setting;
         return HdTranslate(control, &setting);
       },
       {0x1093, 0x1202, 0x2000, 0x2001, 0x2002, 0x2005, 0x2007, 0x2008, 0x2009, 0x200A}},
  };
  for (const auto& [model, answers, codes] : rows) {
    for (int code = 0; code <= 0xFFFF; ++code) {
      const bool known = std::ranges::find(codes, code) != codes.end();
      for (const int value : {0, 1, 127, -128})
        ASSERT_EQ(answers(Control(static_cast<uint16_t>(code), value, value, value)), known)
            << model << ' ' << std::hex << code;
    }
  }
}

// Returns the pan speed and direction bits for axis 0, those of tilt for axis 1. The other axis
// runs at its maximum, so that value 0 produces a frame, too.
std::pair<int, int> Axis(int axis, int value) {
  const PtzSequence sequence =
      Translate("QB-620", Control(0x1012, axis == 0 ? value : 127, axis == 0 ? 127 : value));
  EXPECT_EQ(sequence.count, 1);
  const PelcoFrame& frame = sequence.steps[0].frame;
  EXPECT_EQ(frame[axis == 0 ? 5 : 4], 63);
  return {frame[axis == 0 ? 4 : 5], frame[3] & (axis == 0 ? 0x06 : 0x18)};
}

// The share of 128, rounded down; at least 1 unless the value is 0; the extreme values give full
// speed.
TEST(PtzTables, ScalesTheJoystick) {
  const std::tuple<int, int, int> rows[] = {
      // value, speed, factor of the right or up bit
      {-128, 63, 2}, {-127, 63, 2}, {-126, 62, 2}, {-4, 1, 2},  {-1, 1, 2},
      {0, 0, 0},     {1, 1, 1},     {4, 1, 1},     {5, 2, 1},   {64, 31, 1},
      {65, 31, 1},   {66, 32, 1},   {126, 62, 1},  {127, 63, 1}};
  for (const auto& [value, speed, factor] : rows) {
    EXPECT_EQ(Axis(0, value), std::pair(speed, factor * 0x02)) << value;
    EXPECT_EQ(Axis(1, value), std::pair(speed, factor * 0x08)) << value;
  }
}

TEST(PtzTables, MapsMotorSpeedsInStepsOf31) {
  const std::pair<int, uint8_t> rows[] = {{-128, 0xFB}, {-124, 0xFB}, {-123, 0xFC}, {-31, 0xFE},
                                          {-30, 0xFF},  {30, 0xFF},   {31, 0x00},   {61, 0x00},
                                          {62, 0x01},   {123, 0x02},  {124, 0x03},  {127, 0x03}};
  for (const auto& [value, speed] : rows) {
    for (const uint16_t code : {uint16_t{0x1072}, uint16_t{0x1073}})
      EXPECT_EQ(Translate("QB-620", Control(code, value)).steps[0].frame[5], speed) << value;
  }
}

}  // namespace
