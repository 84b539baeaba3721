// Motion for a time: it is stopped whatever happens to the tool.
#include <csignal>

#include "tests/system/ctl_fixture.h"
#include "tests/system/device_fixture.h"

namespace {

using sim::milliseconds;

constexpr char kTele[] = "FF 01 00 20 00 00 21";
constexpr char kStops[] = "FF 01 00 00 00 00 01 FF 01 00 00 00 00 01";
constexpr size_t kFrame = 7;

class CtlMotion : public DeviceTest {};

TEST_F(CtlMotion, SignalsStopItEarly) {
  StartModel("QB-100");
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGPIPE, SIGPROF, SIGRTMIN}) {
    SCOPED_TRACE(strsignal(signal));
    const auto ctl = StartCtl("ptz zoom-tele --for 60s");
    ASSERT_EQ(Line(kFrame), kTele);
    ctl->Signal(signal);
    ctl->Signal(signal);  // impatiently
    EXPECT_EQ(Line(2 * kFrame), kStops);
    const CtlResult result = AwaitCtl(ctl.get());
    EXPECT_EQ(result.status, 128 + signal);
    EXPECT_EQ(result.errors, std::string("rs232ctl: stopped early: ") + strsignal(signal) + "\n");
  }
}

TEST_F(CtlMotion, LastsAsLongAsAskedWhereSignalsAreIgnored) {
  StartModel("QB-100");
  sim::DaemonProcess nohup("/bin/sh", {"-c", std::string("trap '' HUP; exec '") + RS232CTL_PATH +
                                                 "' ptz zoom-tele --for 300ms"});
  const auto started = line.ReceiveFrames(1, kFrame);
  nohup.Signal(SIGHUP);
  const auto stopped = line.ReceiveFrames(2, kFrame);
  ASSERT_EQ(started.size() + stopped.size(), 3U);
  // The first frame may be seen late, never early.
  EXPECT_GE(stopped[0].time - started[0].time, milliseconds(250));
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
