// Timed motions: the tool stops them in any case.
#include <csignal>

#include "tests/system/ctl_fixture.h"
#include "tests/system/device_fixture.h"

namespace {

using sim::milliseconds;

constexpr char kTele[] = "FF 01 00 20 00 00 21";
constexpr char kStops[] = "FF 01 00 00 00 00 01 FF 01 00 00 00 00 01";
constexpr size_t kFrame = 7;

using CtlMotion = DeviceTest;

TEST_F(CtlMotion, SignalsStopTheMotion) {
  StartModel("QB-100");
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGPIPE, SIGRTMIN}) {
    SCOPED_TRACE(strsignal(signal));
    const auto ctl = StartCtl("ptz zoom-tele --for 60s");
    ASSERT_EQ(Line(kFrame), kTele);
    ctl->Signal(signal);
    ctl->Signal(signal);  // a second signal changes nothing
    EXPECT_EQ(Line(2 * kFrame), kStops);
    const CtlResult result = AwaitCtl(ctl.get());
    EXPECT_EQ(result.status, 128 + signal);
    EXPECT_EQ(result.errors, std::string("rs232ctl: stopped early: ") + strsignal(signal) + "\n");
  }
  const auto ctl = StartCtl("ptz zoom-tele --for 60s");
  ASSERT_EQ(Line(kFrame), kTele);
  EXPECT_EQ(daemon->Stop(), 0);
  ctl->Signal(SIGTERM);
  EXPECT_EQ(AwaitCtl(ctl.get()).status, 3) << "the daemon is gone";
}

// Real time: a shell ignores a signal, or the daemon is suspended.
class RealTimeCtlMotion : public DeviceTest {};

TEST_F(RealTimeCtlMotion, LastsItsTimeIfSignalsAreIgnored) {
  StartModel("QB-100");
  sim::DaemonProcess nohup("/bin/sh", {"-c", std::string("trap '' HUP; exec '") + RS232CTL_PATH +
                                                 "' ptz zoom-tele --for 300ms"});
  const auto started = line.ReceiveFrames(1, kFrame);
  nohup.Signal(SIGHUP);
  const auto stopped = line.ReceiveFrames(2, kFrame);
  ASSERT_EQ(started.size() + stopped.size(), 3U);
  // The first frame may be observed late, but never early.
  EXPECT_GE(stopped[0].time - started[0].time, milliseconds(250));
  EXPECT_EQ(nohup.WaitEnd(), 0);
}

// If motion and stop are both pending when the daemon resumes, they must keep their order.
TEST_F(RealTimeCtlMotion, KeepsTheOrderIfTheDaemonIsLate) {
  StartModel("QB-610");
  daemon->Signal(SIGSTOP);
  ExpectCtl("ptz left --for 1ms", 0);
  daemon->Signal(SIGCONT);
  EXPECT_EQ(Line(2 * kFrame), "FF 01 00 04 00 00 05 FF 01 00 00 00 00 01");
}

}  // namespace
