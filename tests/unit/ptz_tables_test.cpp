#include "relay/ptz_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "module/hd_mode.h"
#include "module/sd_mode.h"
#include "sim/pty_line.h"
#include "tools/frame_texts.h"

namespace {

using std::string;

CameraControl Control(int code, int first, int second, int third) {
  return {.target = CAMERA_CONTROL_TARGET,
          .code = static_cast<uint16_t>(code),
          .first = static_cast<int8_t>(first),
          .second = static_cast<int8_t>(second),
          .third = static_cast<int8_t>(third)};
}

PtzSequence Translate(const char* model, int code, int first = 0, int second = 0, int third = 0) {
  return PtzTranslate(PtzTableForModel(model), Control(code, first, second, third));
}

auto IsRelayed(const char* model) {
  return [model](const CameraControl& control) {
    return PtzTranslate(PtzTableForModel(model), control).count > 0;
  };
}

// Each frame with the wait before it, e.g. "0: FF 01 00 00 00 00 01 / 250: ...".
string Text(const PtzSequence& sequence) {
  string text;
  for (int i = 0; i < sequence.count; ++i) {
    const PtzStep& step = sequence.steps[static_cast<size_t>(i)];
    if (i > 0) text += " / ";
    text += std::to_string(step.wait_ms) + ": " + sim::Hex(step.frame);
  }
  return text;
}

const string kStop = "FF 01 00 00 00 00 01";
const string kLongStop = "0: " + kStop + " / 250: " + kStop;
const string kThenShortStop = " / 100: " + kStop + " / 100: " + kStop;

TEST(PtzTables, TakesParametersByTheirSizeAndSign) {
  const struct {
    const char* model;
    int code;
    int first, second, third;
    string sent;
  } rows[] = {
      {"QB-620", 0x1061, -128, 0, 0, "0: " + kStop + " / 50: FF 01 00 23 00 80 A4"},
      // parameter as an unsigned byte
      {"QB-620", 0x1020, -1, 0, 0, "0: FF 01 00 03 00 FF 03"},
      // zoom and focus by sign
      {"QB-100", 0x1012, 9, 9, 1, "0: FF 01 00 20 00 00 21"},
      {"QB-100", 0x2002, 9, 9, 0, kLongStop},
      // joystick
      {"QB-620", 0x1012, 0, 127, 5, "0: FF 01 00 08 00 3F 48 / 0: FF 01 00 20 00 00 21"},
      // models by their whole name
      {"QB-6100", 0x2007, 0, 0, 0, "0: FF 01 00 08 00 1D 26" + kThenShortStop},
      {"qb-620", 0x4004, 0, 0, 0, ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Text(Translate(row.model, row.code, row.first, row.second, row.third)), row.sent)
        << row.model << ' ' << std::hex << row.code;
  }
}

// Whatever the parameters. The camera modules' tables as well.
TEST(PtzTables, AnswersOnlyTheCodesOfTheModel) {
  const struct {
    const char* model;
    std::function<bool(const CameraControl& control)> answers;
    std::vector<int> codes;
  } rows[] = {
      {"QB-610", IsRelayed("QB-610"), {0x2000, 0x2005, 0x2007, 0x2008, 0x2009, 0x200A}},
      {"QB-620", IsRelayed("QB-620"), {0x1005, 0x1006, 0x1009, 0x1012, 0x1020, 0x1021, 0x1022,
                                       0x1060, 0x1061, 0x1072, 0x1073, 0x1091, 0x1092, 0x2000,
                                       0x2001, 0x2002, 0x2005, 0x2007, 0x2008, 0x2009, 0x200A,
                                       0x4001, 0x4002, 0x4003, 0x4004, 0xFFFF}},
      {"QB-100",
       IsRelayed("QB-100"),
       {0x1012, 0x2000, 0x2001, 0x2002, 0x2005, 0x2007, 0x2008, 0x2009, 0x200A}},
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
  for (const auto& row : rows) {
    for (int code = 0; code <= 0xFFFF; ++code) {
      const bool known = std::find(row.codes.begin(), row.codes.end(), code) != row.codes.end();
      for (const int value : {0, 1, 127, -128}) {
        ASSERT_EQ(row.answers(Control(code, value, value, value)), known)
            << row.model << ' ' << std::hex << code;
      }
    }
  }
}

// Pan speed and direction bits for axis 0, those of tilt for axis 1. The other axis runs at its
// end, so that there is a frame for 0 as well.
std::pair<int, int> Axis(int axis, int value) {
  const PtzSequence sequence =
      Translate("QB-620", 0x1012, axis == 0 ? value : 127, axis == 0 ? 127 : value);
  EXPECT_EQ(sequence.count, 1);
  const PelcoFrame& frame = sequence.steps[0].frame;
  EXPECT_EQ(frame[axis == 0 ? 5 : 4], 63);
  return {frame[axis == 0 ? 4 : 5], frame[3] & (axis == 0 ? 0x06 : 0x18)};
}

TEST(PtzTables, ScalesTheJoystick) {
  using Result = std::pair<int, int>;
  for (const int axis : {0, 1}) {
    const int forward = axis == 0 ? 0x02 : 0x08;
    const int back = axis == 0 ? 0x04 : 0x10;
    EXPECT_EQ(Axis(axis, 0), Result(0, 0));
    EXPECT_EQ(Axis(axis, 127), Result(63, forward));
    EXPECT_EQ(Axis(axis, -127), Result(63, back));
    EXPECT_EQ(Axis(axis, -128), Result(63, back));
    for (int size = 1; size < 127; ++size) {
      const int speed = Axis(axis, size).first;
      ASSERT_EQ(Axis(axis, size), Result(speed, forward)) << size;
      ASSERT_EQ(Axis(axis, -size), Result(speed, back)) << size;
      ASSERT_LE(Axis(axis, size - 1).first, speed) << size;
      ASSERT_GE(speed, 1) << size;
      // The share of 128 rounded down, but nothing that moves stands.
      if (speed == 1) {
        ASSERT_LE(size, 4);
      } else {
        ASSERT_TRUE(speed * 128 <= size * 63 && size * 63 < (speed + 1) * 128) << size;
      }
    }
  }
}

TEST(PtzTables, CountsMotorSpeedInStepsOf31) {
  const std::tuple<int, int, uint8_t> rows[] = {
      {-128, -124, 0xFB}, {-123, -93, 0xFC}, {-92, -62, 0xFD}, {-61, -31, 0xFE}, {-30, 30, 0xFF},
      {31, 61, 0x00},     {62, 92, 0x01},    {93, 123, 0x02},  {124, 127, 0x03},
  };
  int next = -128;
  for (const auto& [from, to, speed] : rows) {
    ASSERT_EQ(from, next);  // every value is in one row
    for (; next <= to; ++next) {
      EXPECT_EQ(Translate("QB-620", 0x1072, next).steps[0].frame[5], speed) << next;
      EXPECT_EQ(Translate("QB-620", 0x1073, next).steps[0].frame[5], speed) << next;
    }
  }
  EXPECT_EQ(next, 128);
}

}  // namespace
