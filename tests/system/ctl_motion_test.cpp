// Motion for a time: it is stopped whatever happens to the tool.
#include <array>
#include <csignal>

#include "tests/system/ctl_fixture.h"
#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

constexpr char kTele[] = "FF 01 00 20 00 00 21";
constexpr char kStops[] = "FF 01 00 00 00 00 01 FF 01 00 00 00 00 01";
constexpr size_t kFrame = 7;

class CtlMotion : public DeviceTest {};

TEST_F(CtlMotion, LastsAsLongAsAsked) {
  StartModel("QB-100");
  const auto ctl = StartCtl("ptz zoom-tele --for 400ms");
  const auto frames = line.ReceiveFrames(2, kFrame);
  ASSERT_EQ(frames.size(), 2U);
  EXPECT_EQ(sim::Hex(frames[0].bytes), kTele);
  // The first frame may be seen late, never early.
  EXPECT_GE(frames[1].time - frames[0].time, milliseconds(350));
  EXPECT_EQ(AwaitCtl(ctl.get()).status, 0);
}

TEST_F(CtlMotion, SignalsStopItEarly) {
  StartModel("QB-100");
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGPIPE, SIGPROF, SIGRTMIN}) {
    SCOPED_TRACE(strsignal(signal));
    const auto ctl = StartCtl("ptz zoom-tele --for 60s");
    ASSERT_EQ(Line(kFrame), kTele);
    ctl->Signal(signal);
    EXPECT_EQ(Line(2 * kFrame), kStops);
    const CtlResult result = AwaitCtl(ctl.get());
    EXPECT_EQ(result.status, 128 + signal);
    EXPECT_EQ(result.errors, std::string("rs232ctl: stopped early: ") + strsignal(signal) + "\n");
  }
}

// What a terminal and a session end a tool with, in every mode.
constexpr std::array kEnds = {SIGINT, SIGTERM, SIGHUP};

TEST_F(CtlMotion, StopsInEveryMode) {
  const struct {
    const char* model;
    const char* motion;
    std::string started;
    std::string stopped;
  } rows[] = {
      {"QB-610", "left", "FF 01 00 04 00 00 05", "FF 01 00 00 00 00 01"},
      {"QB-620", "pan-left", "FF 01 00 04 1F 00 24", kStops},
      {"QB-620", "focus-far", "FF 01 00 80 00 00 81", kStops},
      {"QB-210", "zoom-wide", "FF 01 00 40 00 00 41", "FF 01 00 00 00 00 01"},
      {"QB-310", "zoom-tele", "FF 41 02 00 00 00 01 00 00 43", "FF 41 02 00 00 00 00 00 00 42"},
      {"QB-310", "focus-near", "FF 41 02 00 00 00 18 00 00 5A", "FF 41 02 00 00 00 00 00 00 42"},
  };
  for (const auto& row : rows) {
    StartModel(row.model);
    MeetModule(row.model, &line);
    for (const int signal : kEnds) {
      SCOPED_TRACE(std::string(row.model) + " " + row.motion + ", " + strsignal(signal));
      const auto ctl = StartCtl(std::string("ptz ") + row.motion + " --for 60s");
      ASSERT_EQ(Line((row.started.size() + 1) / 3), row.started);
      ctl->Signal(signal);
      EXPECT_EQ(Line((row.stopped.size() + 1) / 3), row.stopped);
      EXPECT_EQ(AwaitCtl(ctl.get()).status, 128 + signal);
    }
    ExpectLineQuiet();
    EXPECT_EQ(daemon->Stop(), 0);
    line.Receive(1000, milliseconds(0));
  }
}

class CtlLensMotion : public LensTest {};

// The lens rests where the stop found it, but for the search that follows a zoom.
TEST_F(CtlLensMotion, StopsTheLensOfTheDaemon) {
  StartLens({.zoom = 300, .focus = 400});
  for (const int signal : kEnds) {
    SCOPED_TRACE(strsignal(signal));
    const int before = Pose().zoom;
    const auto ctl = StartCtl("ptz zoom-wide --speed 20 --for 60s");
    ASSERT_TRUE(sim::WaitUntil([&] { return Pose().zoom > before; }));
    ctl->Signal(signal);
    EXPECT_EQ(AwaitCtl(ctl.get()).status, 128 + signal);
    ASSERT_TRUE(Drain());
    const int stopped = Pose().zoom;
    ASSERT_TRUE(Drain());
    EXPECT_EQ(Pose().zoom, stopped);
  }
}

TEST_F(CtlLensMotion, StopsTheLensOfTheMicom) {
  StartLens({.zoom = 0, .focus = 200});
  ExpectCtl("ptz af-mode micom", 0);
  ASSERT_TRUE(Sync());
  TakeFrames();
  const struct {
    const char* motion;
    std::string started;
    std::string stopped;
  } rows[] = {
      {"zoom-wide", "A5 40 20 00 00 05", "A5 40 20 00 02 07"},
      {"focus-far", "A5 40 0A 00 00 EF", "A5 40 0A 00 02 F1"},
  };
  for (const auto& row : rows) {
    for (const int signal : kEnds) {
      SCOPED_TRACE(std::string(row.motion) + ", " + strsignal(signal));
      const auto ctl = StartCtl(std::string("ptz ") + row.motion + " --for 60s");
      Lines frames;
      ASSERT_TRUE(sim::WaitUntil([&] { return !(frames = TakeFrames()).empty(); }));
      EXPECT_EQ(frames, Lines{row.started});
      ctl->Signal(signal);
      EXPECT_EQ(AwaitCtl(ctl.get()).status, 128 + signal);
      ASSERT_TRUE(Sync());
      EXPECT_EQ(TakeFrames(), Lines{row.stopped});
    }
  }
}

TEST_F(CtlMotion, SignalsThatCameTwiceOrAreIgnored) {
  StartModel("QB-100");
  const auto impatient = StartCtl("ptz zoom-tele --for 60s");
  ASSERT_EQ(Line(kFrame), kTele);
  impatient->Signal(SIGINT);
  impatient->Signal(SIGTERM);
  EXPECT_EQ(Line(2 * kFrame), kStops);
  EXPECT_GE(AwaitCtl(impatient.get()).status, 128);

  sim::DaemonProcess nohup("/bin/sh", {"-c", std::string("trap '' HUP; exec '") + RS232CTL_PATH +
                                                 "' ptz zoom-tele --for 300ms"});
  ASSERT_EQ(Line(kFrame), kTele);
  nohup.Signal(SIGHUP);
  EXPECT_EQ(Line(2 * kFrame), kStops);
  EXPECT_EQ(nohup.WaitEnd(), 0);
}

// The daemon finds motion and stop waiting together: they must not change places.
TEST_F(CtlMotion, OrderHoldsWhenTheDaemonIsLate) {
  for (const char* model : {"QB-610", "QB-100"}) {
    StartModel(model);
    daemon->Signal(SIGSTOP);
    ExpectCtl("ptz left --for 1ms", 0);
    daemon->Signal(SIGCONT);
    const std::string frames = Line(2 * kFrame);
    EXPECT_TRUE(frames.starts_with("FF 01 00 04 ")) << frames;
    EXPECT_TRUE(frames.ends_with("FF 01 00 00 00 00 01")) << frames;
    EXPECT_EQ(daemon->Stop(), 0);
    line.Receive(1000, milliseconds(0));
  }
}

TEST_F(CtlMotion, DaemonThatIsGoneWhenItIsToBeStopped) {
  StartModel("QB-100");
  const auto ctl = StartCtl("ptz zoom-tele --for 60s");
  ASSERT_EQ(Line(kFrame), kTele);
  EXPECT_EQ(daemon->Stop(), 0);
  ctl->Signal(SIGTERM);
  const CtlResult result = AwaitCtl(ctl.get());
  EXPECT_EQ(result.status, 3) << result;
  EXPECT_EQ(result.errors,
            "rs232ctl: nobody listens at UDP port 10017 of 127.0.0.1; does rs232d run?\n");
}

}  // namespace
