// Frames of the lens mode: start-up, and commands in both modes of control.
#include <regex>

#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

using LensStart = LensTest;

TEST_F(LensStart, SendsFramesAndPrintsLinesInOrder) {
  InstallLens({.zoom = 120, .focus = 218}, "IMX178");
  Launch();
  ASSERT_TRUE(WaitServing() && Sync());
  const auto frames = TakeTimedFrames();
  Lines expected = {"A5 41 01 00 00 E7", "A5 40 02 00 30 17", "A5 41 02 00 00 E8"};
  expected.insert(expected.end(), 24, "A5 40 0B 00 04 F4");
  ASSERT_EQ(frames.size(), expected.size());
  for (size_t i = 0; i < frames.size(); ++i) {
    EXPECT_EQ(sim::Hex(frames[i].bytes), expected[i]) << i;
    if (i >= 4) {
      EXPECT_GE(frames[i].time - frames[i - 1].time, milliseconds(50));
    }
  }
  EXPECT_GE(frames[3].time - frames[2].time, milliseconds(100 + 50));

  const std::string output = daemon->Output();
  const std::regex banner(
      "\n={14} build@ [A-Z][a-z]{2} [ 1-3]\\d 20\\d\\d, \\d\\d:\\d\\d:\\d\\d ={12} \n");
  EXPECT_EQ(std::regex_replace(output, banner, "BANNER\n"),
            "BANNER\n"
            "version: 0x81, 0x05\n"
            "MFZ parameter for X_PCODE_HERON_V1\n"
            "DELAY_MS_NORMAL= 1.96\n"
            "[MotorSpeed] MS_515PPS.   prescaler = 11000+(5*256) = 12280\n"
            "zftable_len=28, zoom:0~1350, focus:0~2600\n"
            "restored posZoom=120, posFocus=218\n"
            "  (CAUTION) if the positions are not reliable, click 'F' button !!!\n");
  EXPECT_EQ(sim::ReadTextFile(CAMERA_INFO_PATH), "VERSION=1.5-s\n");
  EXPECT_EQ(RealPositions(), (Positions{120, 218})) << "the start must not move the lens";
  EXPECT_EQ(Pose().iris, 96);
}

TEST_F(LensStart, ContinuesWithoutAnswersOfTheMicom) {
  InstallLens({.zoom = -1, .focus = 7});
  micom->traits.silent = true;
  Launch();
  AwaitLoop();
  EXPECT_EQ(CountInOutput("version:"), 0U);
  EXPECT_EQ(CountInOutput("[MotorSpeed] MS_515PPS.   no reply from mcu...\n"), 1U);
  EXPECT_EQ(sim::ReadTextFile(CAMERA_INFO_PATH), "");
}

TEST_F(LensStart, AnswersRequestsOfTheMicom) {
  StartLens({.zoom = 0, .focus = 200}, "IMX178");
  micom->RequestLensModel();
  ASSERT_TRUE(WaitOutput("...sensor_type=SENSOR_IMX178, mfz_model=MFZ_VARIO3610\n"));
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), (Lines{"A5 40 30 03 02 1A"}));

  // While the daemon drives the lens, a request for focus measures is deferred.
  camera->scene.height = 0;
  camera->scene.floor = 0x1234;
  micom->RequestFocusValues(true);
  ASSERT_TRUE(WaitOutput("A5,40,22,00,01,08"));
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), Lines{});
  Control(CAMERA_CODE_AF_MODE, 2);
  ASSERT_TRUE(sim::WaitUntil([&] { return micom->Register(I2M_ADDR_FOCUS_VALUE) == 0x1234; }));
  micom->RequestFocusValues(false);
  ASSERT_TRUE(WaitOutput("A5,40,22,00,00,07"));
  ASSERT_TRUE(Sync());
  const Lines streamed = TakeFrames();
  EXPECT_EQ(streamed.front(), "A5 40 23 00 00 08");
  EXPECT_EQ(std::count(streamed.begin(), streamed.end(), "A5 40 21 12 34 4C"),
            static_cast<std::ptrdiff_t>(streamed.size()) - 1);
  const auto expect_no_stream = [this] {
    AwaitLoop();
    ASSERT_TRUE(Sync());
    EXPECT_EQ(TakeFrames(), Lines{});
  };
  expect_no_stream();

  // A request split over two reads is parsed, but starts no stream.
  const sim::Bytes request = {0xA5, 0x40, 0x22, 0x00, 0x01, 0x08};
  for (const size_t at : {0U, 3U}) {
    line.Send({&request[at], 3});
    ASSERT_TRUE(Sync());
  }
  ASSERT_TRUE(WaitOutput("A5,40,22,00,01,08", 2));
  expect_no_stream();

  // A zoom command ends the stream, too.
  micom->RequestFocusValues(true);
  ASSERT_TRUE(WaitOutput("A5,40,22,00,01,08", 3));
  Zoom(1);
  Zoom(0);
  expect_no_stream();
}

// --- Commands ----------------------------------------------------------------------------------

// The output of a mode change.
std::string ModeLines(int mode) {
  return "control.c: AF mode= " + std::to_string(mode) +
         "\ng_antiflk_enable=0, g_sensor_supported=0\n";
}

// The tests of the tool send every code in both modes.
TEST_F(LensStart, HandlesEdgeValuesOfCodes) {
  const std::tuple<uint16_t, int, int, Lines, std::string> rows[] = {
      {CAMERA_CODE_IRIS, 0x7F, 0, {"A5 40 0B 00 04 F4"}, "+PIRIS_STEP_SINGLE (open)\n"},
      {CAMERA_CODE_IRIS_STEP, -1, 1, {"A5 40 0B FF FC EB"}, "-PIRIS_STEP_SINGLE (close)\n"},
      {CAMERA_CODE_IRIS, 0, 5, {}, ""},
      {CAMERA_CODE_ZOOM, 9, 0, {}, ""},  // stops while idle
      {CAMERA_CODE_FOCUS, 0, 9, {}, ""},
      {CAMERA_CODE_UP, 1, 1, {}, ""},
      {CAMERA_CODE_AF_MODE, 3, 0, {"A5 40 23 00 01 09"}, ModeLines(3)},
      {CAMERA_CODE_AF_MODE, 2, 0, {"A5 40 23 00 00 08"}, ModeLines(2)},
      {CAMERA_CODE_ASSIST, 0, 0, {"A5 40 23 00 00 08"}, "'Z'\n"},
      {CAMERA_CODE_AF_MODE, -3, 0, {"A5 40 23 00 00 08"}, ModeLines(-3)},
  };
  StartLens({.zoom = 0, .focus = 200});
  for (const auto& [code, first, third, frames, printed] : rows) {
    SCOPED_TRACE(testing::Message() << std::hex << code << " " << first);
    const size_t before = daemon->Output().size();
    Control(code, first, 0, third);
    ASSERT_TRUE(Sync());
    EXPECT_EQ(TakeFrames(), frames);
    EXPECT_EQ(daemon->Output().substr(before), printed);
  }
  // A search requested now waits until the daemon drives the lens, longer than the time of its
  // first move.
  Control(CAMERA_CODE_FOCUS_SEARCH);
  EXPECT_FALSE(daemon->WaitEnd(milliseconds(400)).has_value());
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), Lines{});
  Control(CAMERA_CODE_AF_MODE, 3);
  ASSERT_TRUE(WaitOutput("--> saved\n"));
  EXPECT_EQ(SavedPositions(), RealPositions());
}

}  // namespace
