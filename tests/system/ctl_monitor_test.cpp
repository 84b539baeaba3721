// `rs232ctl monitor` and `rs232ctl frames` with the real daemon.
#include <csignal>
#include <regex>

#include "tests/system/ctl_fixture.h"
#include "tests/system/device_fixture.h"

namespace {

using sim::Bytes;
using sim::DaemonProcess;
using sim::milliseconds;
using std::string;

const string kTime = R"(\d\d/\d\d \d\d:\d\d:\d\d\.[ \d]{6})";

class CtlMonitor : public DeviceTest {
 protected:
  // Starts the monitor and waits until it listens.
  void Monitor(std::vector<string> options = {}) {
    options.insert(options.begin(), "monitor");
    monitor = std::make_unique<DaemonProcess>(RS232CTL_PATH, options);
    ASSERT_TRUE(sim::WaitUntil([] { return sim::IsPortBound("udp", SERIAL_DATA_PORT); }));
  }

  // Waits until the monitor has printed this.
  void ExpectShown(const string& pattern) {
    const std::regex expression(pattern);
    EXPECT_TRUE(sim::WaitUntil([&] { return std::regex_search(monitor->Output(), expression); }))
        << pattern << " is not in:\n"
        << monitor->Output() << monitor->Errors();
  }

  std::unique_ptr<DaemonProcess> monitor;
};

TEST_F(CtlMonitor, DumpsAndExplainsTheBytesOfARelay) {
  Start();
  Monitor();
  // A frame in two datagrams, with text before it.
  line.Send(Bytes{'"', 'h', 'i', '"', 0xFF, 0x01});
  ExpectShown("^" + kTime +
              "  6 bytes\n"
              R"(  00000000  22 68 69 22 FF 01 {30}  \|"hi"\.\.\|)"
              "\n  00000000  22 68 69 22 .* 4 bytes outside any frame: \"\"hi\"\"\n$");
  line.Send(Bytes{0x00, 0x04, 0x1D, 0x00, 0x22});
  ExpectShown("\n" + kTime +
              "  5 bytes\n  00000006  00 04 .*\n"
              "  00000004  FF 01 00 04 1D 00 22 +pelco-d +pan left at speed 29\n");
  // An invalid datagram does not end the monitor.
  sender.SendTo(SERIAL_DATA_PORT, Bytes{'h', 'o'});
  ExpectShown("\n" + kTime + "  invalid serial data datagram: it does not begin with PTPRP232\n");
  // After silence, an incomplete frame is reported.
  line.Send(Bytes{0xA5, 0x40, 0x0C});
  ExpectShown("\n  0000000b  A5 40 0C +lens +cut off after 3 bytes\n$");
  EXPECT_EQ(monitor->Stop(), 0);

  Monitor({"--json", "--protocol", "pelco-d"});  // by itself a frame of an HD module
  line.Send(Bytes{0xFF, 0x21, 0x02, 0x00, 0x00, 0x00, 0x23});
  ExpectShown(R"(\{"type":"data","time":\d+\.\d{6},"offset":0,"bytes":"FF 21 02 .* 23",)"
              R"("text":"\.!\.{4}#"\}\n\{"type":"frame",.*"words":"receiver 33: )");
  monitor->Signal(SIGINT);
  EXPECT_EQ(monitor->WaitEnd(), 0);
}

TEST_F(CtlMonitor, ExitsAtItsLimits) {
  Start();
  Monitor({"--raw", "--count", "1"});
  line.Send(Bytes{0xFF, 1, 0, 4, 0x1D, 0, 0x22});
  EXPECT_EQ(monitor->WaitEnd(), 0);
  EXPECT_TRUE(monitor->Output().ends_with("|......\"|\n")) << monitor->Output();

  const auto start = sim::Clock::now();
  Monitor({"--for", "700ms"});
  EXPECT_EQ(monitor->WaitEnd(), 0);
  EXPECT_GE(sim::Clock::now() - start, milliseconds(700));
  EXPECT_EQ(monitor->Errors(), "rs232ctl: listening on UDP port 1860 of 127.0.0.1\n");

  const sim::UdpPeer other(SERIAL_DATA_PORT);
  Monitor();
  EXPECT_EQ(monitor->WaitEnd(), 1);
  EXPECT_EQ(
      monitor->Errors(),
      "rs232ctl: UDP port 1860 of 127.0.0.1 is in use: another process receives the serial data\n");
}

// Explains the output of a daemon with its trace on, and bytes given as arguments.
TEST_F(CtlMonitor, FramesExplainTheTrace) {
  Start({"1"});
  Control(CAMERA_CODE_ZOOM, 0, 0, 1);
  EXPECT_EQ(Line(7), "FF 01 00 20 00 00 21");
  line.Send(Bytes{0xFF, 0x01, 0x00, 0x01});
  ASSERT_TRUE(WaitOutput("RECV    4: FF 01 00 01 \n"));
  sim::WriteTextFile("/tmp/trace", "some line\n" + daemon->Output() + "another");
  // The expected output, as a regular expression.
  const std::tuple<string, int, string, string> rows[] = {
      {"< /tmp/trace", 0,
       kTime + " SEND  FF 01 00 20 00 00 21 +pelco-d +zoom tele\n" + kTime +
           " RECV  FF 01 00 01 +pelco-d +answer of the head: no alarm\n",
       ""},
      {"'00000000  FF 01 00 00 00 00 01  |.......|\n00000007' --json", 0,
       R"(\{"offset":0,"bytes":"FF 01 [^"]* 01".*"verdict":"good","words":"stop"\}\n)", ""},
      // A damaged line does not affect the others.
      {"'daemon | S.03/03 09:05:07.  1234 SEND 2: 41\nx SEND 1: 42'", 2,
       "x SEND  42 +- +1 byte outside any frame: \"B\"\n",
       "rs232ctl: 03/03 09:05:07.  1234: the trace line announces 2 bytes and has 1\n"},
  };
  for (const auto& [arguments, status, output, errors] : rows) {
    const CtlResult result = RunCtl("frames " + arguments);
    EXPECT_EQ(result.status, status) << arguments;
    EXPECT_TRUE(std::regex_match(result.output, std::regex(output))) << result.output;
    EXPECT_EQ(result.errors, errors);
  }
}

}  // namespace
