// Start-up of the lens mode, its commands in both modes, and the drive, on the wire.
#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

using LensStart = LensTest;

// Moves of one frame's register, or 0 for another register.
int StepsOf(const I2mFrame& frame, uint8_t address) {
  if (frame[I2M_ADDRESS_AT] != address) return 0;
  // Both motors of this lens count the other way round.
  return -static_cast<int16_t>(frame[I2M_HIGH_AT] << 8 | frame[I2M_LOW_AT]);
}

// Length of the banner that begins `output`, in the form "Oct 11 2018, 10:33:53"; 0 when it begins
// otherwise.
size_t BannerLength(const std::string& output) {
  int length = 0;
  sscanf(output.c_str(),
         "\n============== build@ %*3[A-Za-z] %*2d 20%*2d, %*2d:%*2d:%*2d ============ %n",
         &length);
  constexpr size_t kLength = sizeof("\n============== build@ Oct 11 2018, 10:33:53 ============ ");
  const auto found = static_cast<size_t>(length);
  return found == kLength && output[found - 1] == '\n' ? found : 0;
}

TEST_F(LensStart, FramesAndLinesInOrder) {
  InstallLens("zoom_position=120\nfocus_position=218\n", "IMX178");
  AttachLens({.zoom = 120, .focus = 218});
  Launch();
  ASSERT_TRUE(daemon->WaitServing(config));
  ASSERT_TRUE(Sync());
  const auto frames = TakeTimedFrames();
  Lines expected = {"A5 41 01 00 00 E7", "A5 40 02 00 30 17", "A5 41 02 00 00 E8"};
  expected.insert(expected.end(), 24, "A5 40 0B 00 04 F4");
  ASSERT_EQ(frames.size(), expected.size());
  for (size_t i = 0; i < frames.size(); ++i) {
    EXPECT_EQ(sim::Hex(frames[i].bytes), expected[i]) << i;
    if (i >= 4) {
      EXPECT_GE(frames[i].time - frames[i - 1].earliest, milliseconds(50));
    }
  }
  EXPECT_GE(frames[3].time - frames[2].earliest, milliseconds(100 + 50));

  const std::string output = daemon->Output();
  EXPECT_EQ(output.substr(BannerLength(output)),
            "version: 0x81, 0x05\n"
            "MFZ parameter for X_PCODE_HERON_V1\n"
            "DELAY_MS_NORMAL= 1.96\n"
            "[MotorSpeed] MS_515PPS.   prescaler = 11000+(5*256) = 12280\n"
            "zftable_len=28, zoom:0~1350, focus:0~2600\n"
            "restored posZoom=120, posFocus=218\n"
            "  (CAUTION) if the positions are not reliable, click 'F' button !!!\n");
  EXPECT_EQ(sim::ReadTextFile(CAMERA_INFO_PATH), "VERSION=1.5-s\n");
  EXPECT_EQ(RealPositions(), (Positions{120, 218})) << "a start moves nothing";
  EXPECT_EQ(Pose().iris, 96);
  EXPECT_EQ(daemon->Stop(), 0);
}

TEST_F(LensStart, SilentMicomIsPassedOver) {
  InstallLens("zoom_position=-1\nfocus_position=7\n");
  AttachLens({});
  rig->With([](sim::LensMicom& micom, sim::CameraDaemon&) { micom.traits.silent = true; });
  Launch();
  AwaitLoop();
  const std::string output = daemon->Output();
  EXPECT_EQ(output.find("version:"), std::string::npos);
  EXPECT_NE(output.find("[MotorSpeed] MS_515PPS.   no reply from mcu...\n"), std::string::npos);
  EXPECT_NE(output.find("!!! Click 'F' button to reset zoom & focus positions !!!\n"),
            std::string::npos);
  EXPECT_EQ(sim::ReadTextFile(CAMERA_INFO_PATH), "");
  EXPECT_EQ(daemon->Stop(), 0);
}

TEST_F(LensStart, MicomRequests) {
  StartLens({.zoom = 0, .focus = 200}, "IMX178");
  rig->With([](sim::LensMicom& micom, sim::CameraDaemon&) { micom.RequestLensModel(); });
  ASSERT_TRUE(
      WaitOutput("RX parsed: A5,40,30,00,00,15, ==> [I2M_ADDR_MFZ_MODEL]   0x00, 0x00\n"
                 "...sensor_type=SENSOR_IMX178, mfz_model=MFZ_VARIO3610\n"))
      << daemon->Output();
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), (Lines{"A5 40 30 03 02 1A"}));

  // While it is the daemon that drives the lens, a request for the focus measures waits.
  rig->With([](sim::LensMicom& micom, sim::CameraDaemon& camera) {
    camera.scene.height = 0;
    camera.scene.floor = 0x1234;
    micom.RequestFocusValues(true);
  });
  ASSERT_TRUE(WaitOutput("A5,40,22,00,01,08, ==> [UNDEFINED CMD:0x22]   0x00, 0x01\n"));
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), Lines{});
  Control(CAMERA_CODE_AF_MODE, 2);
  ASSERT_TRUE(sim::WaitUntil([&] {
    return rig->With([](const sim::LensMicom& micom, const sim::CameraDaemon&) {
      return micom.Register(I2M_ADDR_FOCUS_VALUE) == 0x1234;
    });
  }));
  rig->With([](sim::LensMicom& micom, sim::CameraDaemon&) { micom.RequestFocusValues(false); });
  ASSERT_TRUE(WaitOutput("A5,40,22,00,00,07, ==> [UNDEFINED CMD:0x22]   0x00, 0x00\n"));
  ASSERT_TRUE(Sync());
  const Lines streamed = TakeFrames();
  EXPECT_EQ(streamed.front(), "A5 40 23 00 00 08");
  EXPECT_EQ(std::count(streamed.begin(), streamed.end(), "A5 40 21 12 34 4C"),
            static_cast<std::ptrdiff_t>(streamed.size()) - 1);
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), Lines{});

  // A zoom command ends the stream as well.
  rig->With([](sim::LensMicom& micom, sim::CameraDaemon&) { micom.RequestFocusValues(true); });
  ASSERT_TRUE(WaitOutput("A5,40,22,00,01,08", 2));
  Zoom(1);
  Zoom(0);
  ASSERT_TRUE(Sync());
  TakeFrames();
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), Lines{});
  EXPECT_EQ(daemon->Stop(), 0);
}

// A request that two reads bring is parsed, but starts no stream.
TEST_F(LensStart, SplitStreamRequestDoesNotCount) {
  StartLens({.zoom = 0, .focus = 200});
  Control(CAMERA_CODE_AF_MODE, 2);
  ASSERT_TRUE(Sync());
  TakeFrames();
  const sim::Bytes head = {0xA5, 0x40, 0x22};
  const sim::Bytes rest = {0x00, 0x01, 0x08};
  rig->With([&](sim::LensMicom&, sim::CameraDaemon&) { line.Send(head); });
  ASSERT_TRUE(Sync());
  rig->With([&](sim::LensMicom&, sim::CameraDaemon&) { line.Send(rest); });
  ASSERT_TRUE(WaitOutput("A5,40,22,00,01,08, ==> [UNDEFINED CMD:0x22]"));
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), Lines{});
}

// --- Commands ----------------------------------------------------------------------------------

struct CodeRow {
  const char* legend;
  uint16_t code;
  int first;
  int third;
  std::vector<std::string> frames;
  const char* printed;
};

constexpr char kOpenLine[] = "+PIRIS_STEP_SINGLE (open)\n";
constexpr char kCloseLine[] = "-PIRIS_STEP_SINGLE (close)\n";

// The same in both modes.
const std::vector<CodeRow> kBothModes = {
    {"iris open", 0x100A, 0x7F, 0, {"A5 40 0B 00 04 F4"}, kOpenLine},
    {"iris open, least", 0x2003, 1, -1, {"A5 40 0B 00 04 F4"}, kOpenLine},
    {"iris closed", 0x100A, -128, 0, {"A5 40 0B FF FC EB"}, kCloseLine},
    {"iris closed, least", 0x2003, -1, 1, {"A5 40 0B FF FC EB"}, kCloseLine},
    {"iris, nothing", 0x100A, 0, 5, {}, ""},
    {"iris, nothing", 0x2003, 0, 5, {}, ""},
    {"zoom stop while idle", 0x2002, 9, 0, {}, ""},
    {"focus stop while idle", 0x2001, 0, 9, {}, ""},
    {"no code of this mode", 0x2007, 1, 1, {}, ""},
    {"no code of this mode", 0x1012, 1, 1, {}, ""},
    {"no code of this mode", 0xFFFF, 1, 1, {}, ""},
};

const std::vector<CodeRow> kMicomMode = {
    {"focus +", 0x2001, 127, 0, {"A5 40 0A 00 01 F0"}, ""},
    {"focus + least", 0x2001, 1, -1, {"A5 40 0A 00 01 F0"}, ""},
    {"focus -", 0x2001, -128, 0, {"A5 40 0A 00 00 EF"}, ""},
    {"focus stop", 0x2001, 0, 7, {"A5 40 0A 00 02 F1"}, ""},
    {"zoom +", 0x2002, -1, 1, {"A5 40 20 00 01 06"}, ""},
    {"zoom -", 0x2002, 1, -1, {"A5 40 20 00 00 05"}, ""},
    {"zoom stop", 0x2002, 7, 0, {"A5 40 20 00 02 07"}, ""},
    {"F", 0x8012, 0, 0, {"A5 40 23 00 00 08"}, "'Z'\n"},
    {"stay in micom mode",
     0x8100,
     2,
     0,
     {"A5 40 23 00 00 08"},
     "control.c: AF mode= 2\ng_antiflk_enable=0, g_sensor_supported=0\n"},
    {"stay in micom mode",
     0x8100,
     -3,
     0,
     {"A5 40 23 00 00 08"},
     "control.c: AF mode= -3\ng_antiflk_enable=0, g_sensor_supported=0\n"},
};

class LensCodes : public LensTest {
 protected:
  void ExpectRow(const CodeRow& row) {
    SCOPED_TRACE(row.legend);
    const size_t printed = daemon->Output().size();
    Control(row.code, row.first, 0, row.third);
    ASSERT_TRUE(Sync());
    EXPECT_EQ(TakeFrames(), row.frames);
    EXPECT_EQ(daemon->Output().substr(printed), row.printed);
  }

  void ExpectRows(const std::vector<CodeRow>& rows) {
    for (const CodeRow& row : rows)
      ExpectRow(row);
  }
};

TEST_F(LensCodes, MeanTheSameInBothModesOrJogTheMicom) {
  StartLens({.zoom = 0, .focus = 200});
  ExpectRows({{"no micom-mode jog in daemon mode", 0x2001, 0, 0, {}, ""}});
  for (const CodeRow& row : kBothModes) {
    if (std::string(row.legend).find("stop while idle") != std::string::npos || row.first != 0)
      ExpectRow(row);
  }
  ExpectRow({"daemon mode again",
             0x8100,
             3,
             0,
             {"A5 40 23 00 01 09"},
             "control.c: AF mode= 3\ng_antiflk_enable=0, g_sensor_supported=0\n"});
  ExpectRow({"micom mode",
             0x8100,
             2,
             0,
             {"A5 40 23 00 00 08"},
             "control.c: AF mode= 2\ng_antiflk_enable=0, g_sensor_supported=0\n"});
  for (const CodeRow& row : kBothModes) {
    if (row.code != 0x2001 && row.code != 0x2002) ExpectRow(row);
  }
  ExpectRows(kMicomMode);
  EXPECT_EQ(daemon->Stop(), 0);
}

// A search that is asked for in micom mode waits for the daemon's turn.
TEST_F(LensCodes, SearchWaitsForDaemonMode) {
  StartLens({.zoom = 0, .focus = 200});
  Control(CAMERA_CODE_AF_MODE, 2);
  Control(CAMERA_CODE_FOCUS_SEARCH);
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), (Lines{"A5 40 23 00 00 08"}));
  Control(CAMERA_CODE_AF_MODE, 3);
  ASSERT_TRUE(WaitOutput("--> saved\n"));
  EXPECT_EQ(SavedPositions(), RealPositions());
}

TEST_F(LensCodes, DatagramsAndClientsReachTheLine) {
  StartLens({.zoom = 0, .focus = 200});
  sim::PtzClient client(config.ptz_port);
  const sim::Bytes frame = {0xA5, 0x40, 0x0B, 0x00, 0x04, 0xF4};
  client.Send(frame);
  ASSERT_TRUE(sim::WaitUntil([&] { return TakeFrames() == Lines{sim::Hex(frame)}; }));
  const uint8_t short_datagram = 1;
  SendUdp({&short_datagram, 1});
  rig->With([](sim::LensMicom& micom, sim::CameraDaemon&) { micom.RequestLensModel(); });
  EXPECT_EQ(sim::Hex(client.Receive(6)), "A5 40 30 00 00 15");
  SendUdp(sim::DaemonDatagram(RS232_UDP_STOP));
  ExpectEnd(0);
}

// --- The drive ---------------------------------------------------------------------------------

class LensDrive : public LensTest {
 protected:
  // Collects frames until there are `count`.
  void AwaitFrames(size_t count) {
    ASSERT_TRUE(sim::WaitUntil([&] {
      for (const sim::LensFrame& frame : TakeTimedFrames())
        frames_.push_back(frame);
      return frames_.size() >= count;
    }));
  }

  std::vector<sim::LensFrame> frames_;
};

struct SpeedRow {
  int first;  // sizes of the value, both ends of an index
  int last;
  int zoom;  // steps of a tick
  int focus;
};
constexpr SpeedRow kSpeeds[] = {
    {1, 11, 5, 2},      {12, 24, 5, 2},       {25, 37, 10, 2},      {38, 50, 10, 2},
    {51, 62, 10, 5},    {63, 75, 10, 5},      {76, 88, 50, 10},     {89, 101, 50, 10},
    {102, 114, 50, 50}, {115, 126, 100, 100}, {127, 128, 100, 200},
};

// Every tick of a focus drive moves by the step of the value's index and lasts as long as the
// steps take.
TEST_F(LensDrive, FocusStepsAtTheIndexBoundaries) {
  StartLens({.zoom = 500, .focus = 1300});
  int focus = 1300;
  for (const SpeedRow& row : kSpeeds) {
    // Up with the one end of the index, down with the other.
    for (const int value : {-row.last, row.first}) {
      SCOPED_TRACE(value);
      TakeTimedFrames();
      frames_.clear();
      Focus(value);
      AwaitFrames(3);
      Focus(0);
      ASSERT_TRUE(Sync());
      AwaitFrames(3);
      ASSERT_FALSE(HasFailure());
      for (size_t i = 0; i < frames_.size(); ++i) {
        // A drive that goes on for longer than it was watched meets the limit.
        const int moved =
            value > 0 ? std::max(-row.focus, -focus) : std::min(row.focus, 2600 - focus);
        EXPECT_EQ(StepsOf(frames_[i].bytes, I2M_ADDR_FOCUS_MOVE), moved);
        focus += moved;
        if (i == 0) continue;
        EXPECT_GE(frames_[i].time - frames_[i - 1].earliest,
                  std::chrono::microseconds(1959 * std::abs(moved)));
      }
      EXPECT_EQ(SavedPositions(), RealPositions());
    }
  }
  EXPECT_EQ(LostSteps(), 0);
}

// Every tick of a zoom drive sends one focus move and then the zoom in chunks of at most ten.
TEST_F(LensDrive, ZoomStepsAtTheIndexBoundaries) {
  StartLens({.zoom = 400, .focus = 340});
  size_t saves = 0;
  for (const SpeedRow& row : kSpeeds) {
    for (const int value : {-row.last, row.first}) {
      SCOPED_TRACE(value);
      TakeTimedFrames();
      frames_.clear();
      const size_t chunks = static_cast<size_t>(std::max(1, row.zoom / 10));
      Zoom(value);
      AwaitFrames(chunks + 1);
      Zoom(0);
      // Ends the search that the stop starts, before its first move, by a move of its own.
      Focus(1);
      Focus(0);
      saves += 2;
      ASSERT_TRUE(WaitOutput("--> saved", saves));
      ASSERT_TRUE(Sync());
      AwaitFrames(chunks + 2);
      ASSERT_FALSE(HasFailure());
      EXPECT_EQ(StepsOf(frames_.back().bytes, I2M_ADDR_FOCUS_MOVE), -2);
      frames_.pop_back();
      EXPECT_EQ(frames_.size() % (chunks + 1), 0U);
      for (size_t i = 0; i < frames_.size(); ++i) {
        const bool is_focus = i % (chunks + 1) == 0;
        EXPECT_EQ(frames_[i].bytes[I2M_ADDRESS_AT],
                  is_focus ? I2M_ADDR_FOCUS_MOVE : I2M_ADDR_ZOOM_MOVE);
        if (is_focus) continue;
        const int chunk = std::min(row.zoom, 10);
        EXPECT_EQ(StepsOf(frames_[i].bytes, I2M_ADDR_ZOOM_MOVE), value > 0 ? -chunk : chunk);
        EXPECT_GE(frames_[i].time - frames_[i - 1].earliest,
                  std::chrono::microseconds(1959 * chunk));
      }
      EXPECT_EQ(SavedPositions(), RealPositions());
    }
  }
  EXPECT_EQ(LostSteps(), 0);
}

}  // namespace
