// `rs232ctl monitor` and `rs232ctl frames` beside the real daemon.
#include <csignal>
#include <regex>

#include "module/hd_frame.h"
#include "sim/hd_micom.h"
#include "sim/sd_module.h"
#include "tests/system/ctl_fixture.h"
#include "tests/system/module_fixture.h"

namespace {

using sim::Bytes;
using sim::DaemonProcess;
using sim::milliseconds;
using std::string;

const string kTime = R"(\d\d/\d\d \d\d:\d\d:\d\d\.[ \d]{6})";

class CtlMonitor : public ModuleTest {
 protected:
  // Starts the monitor and waits until it listens.
  void Monitor(std::vector<string> options = {}) {
    options.insert(options.begin(), "monitor");
    monitor = std::make_unique<DaemonProcess>(RS232CTL_PATH, options);
    ASSERT_TRUE(sim::WaitUntil([] { return sim::IsPortBound("udp", SERIAL_DATA_PORT); }));
  }

  // Waits until the monitor has printed this, while it runs. Serves the far end meanwhile.
  void ExpectShown(const string& pattern) {
    const std::regex expression(pattern);
    const auto is_shown = [&] { return std::regex_search(monitor->Output(), expression); };
    EXPECT_TRUE(server ? server->ServeUntil(is_shown) : sim::WaitUntil(is_shown))
        << pattern << " is not in:\n"
        << monitor->Output() << monitor->Errors();
    EXPECT_FALSE(monitor->WaitEnd(milliseconds(0)).has_value());
  }

  void ExpectMonitorEnds(int signal) {
    monitor->Signal(signal);
    EXPECT_EQ(monitor->WaitEnd(), 0);
    EXPECT_EQ(monitor->Errors(), "");
  }

  std::unique_ptr<DaemonProcess> monitor;
};

TEST_F(CtlMonitor, DumpsAndExplainsTheBytesOfARelay) {
  Start();
  Monitor();
  // A frame in two datagrams, with text before it and the next frame at its heels.
  line.Send(Bytes{'"', 'h', 'i', '"', 0xFF, 0x01});
  ExpectShown("^" + kTime +
              "  6 bytes\n"
              R"(  00000000  22 68 69 22 FF 01 {30}  \|"hi"\.\.\|)"
              "\n  00000000  22 68 69 22 .* 4 bytes of no frame: \"\"hi\"\"\n$");
  line.Send(Bytes{0x00, 0x04, 0x1D, 0x00, 0x22, 0xFF, 0x01, 0x05, 0x06});
  ExpectShown("\n" + kTime +
              "  9 bytes\n  00000006  00 04 .*\n"
              "  00000004  FF 01 00 04 1D 00 22 +pelco-d +pan left at speed 29\n");
  ExpectShown("\n  0000000b  FF 01 05 06 +pelco-d +answer of the head: alarms 0x05\n$");
  // A long read goes over several rows.
  line.Send(Bytes(17, 0x41));
  ExpectShown(R"(\n  0000000f  (41 ){16} \|A{16}\|\n  0000001f  41 +\|A\|\n)");
  // Something else at the port is no end.
  sender.SendTo(SERIAL_DATA_PORT, Bytes{'h', 'o'});
  ExpectShown("\n" + kTime +
              "  no serial data datagram: it does not begin with PTPRP232\n"
              R"(  00000000  68 6F +\|ho\|)");
  // What a quiet line has left unfinished is said, also at the end.
  line.Send(Bytes{0xA5, 0x40, 0x0C});
  ExpectShown("\n  00000020  A5 40 0C +lens +cut off after 3 bytes\n$");
  ExpectMonitorEnds(SIGINT);
}

TEST_F(CtlMonitor, WritesJsonOfTheModules) {
  StartWith("QB-210", std::make_unique<sim::SdModule>(uint8_t{42}, sim::Clock::now()));
  Monitor({"--json"});
  SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, Bytes{0xFF, 1, 0, 0, 0x96, 0x69, 0}));
  ExpectShown(R"(\{"type":"data","time":\d+\.\d{6},"offset":0,"bytes":"FF 01 00 00 00 2A 2B",)"
              R"("text":"\.\.\.\.\.\*\+"\}\n)");
  ExpectShown(
      R"(\{"type":"frame","time":\d+\.\d{6},"offset":\d+,"bytes":"FF 01 00 00 00 2A 2B",)"
      R"("text":".{7}","protocol":"sd-module","verdict":"good","words":"reply: model 42"\}\n)");
  ExpectMonitorEnds(SIGTERM);
  EXPECT_EQ(daemon->Stop(), 0);

  PutBehindLine(std::make_unique<sim::HdMicom>(
      sim::HdIdentity{}, sim::LoaderSetup{}, [this] { return line.Settings(); },
      sim::Clock::now()));
  config.model = "QB-310";
  Install();
  Launch();
  ASSERT_TRUE(ServeUntilWords("asked for its sensor"));
  ASSERT_TRUE(server->ServeUntil([&] { return !Info().empty(); }));
  Monitor({"--protocol", "hd-micom"});
  SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, HdBuild(HD_VERSION, HD_QUERY, HD_NO_DATA)));
  ExpectShown("hd-micom +answer: firmware version 2\\.1\n$");
  ExpectMonitorEnds(SIGTERM);
}

TEST_F(CtlMonitor, EndsByItself) {
  Start();
  Monitor({"--raw", "--count", "1"});
  const Bytes left = {0xFF, 1, 0, 4, 0x1D, 0, 0x22};
  line.Send(left);
  EXPECT_EQ(monitor->WaitEnd(), 0);
  EXPECT_EQ(monitor->Output().find("pan"), string::npos);
  EXPECT_NE(monitor->Output().find("FF 01 00 04 1D 00 22"), string::npos);

  const auto start = sim::Clock::now();
  Monitor({"--for", "700ms"});
  EXPECT_EQ(monitor->WaitEnd(), 0);
  EXPECT_GE(sim::Clock::now() - start, milliseconds(700));

  const sim::UdpPeer other(SERIAL_DATA_PORT);
  Monitor();
  EXPECT_EQ(monitor->WaitEnd(), 1);
  EXPECT_EQ(
      monitor->Errors(),
      "rs232ctl: UDP port 1860 of 127.0.0.1 is taken: another process gets the serial data\n");
}

// The trace of both modules, from the first question on.
TEST_F(CtlMonitor, FramesExplainTheTraceOfModules) {
  const auto expect_words = [this](const char* asked, const char* told) {
    EXPECT_EQ(daemon->Stop(), 0);  // a read is traced last of all that is done with it
    sim::WriteTextFile("/etc/trace", daemon->Output());
    const string explained = RunCtl("frames < /etc/trace").output;
    EXPECT_TRUE(std::regex_search(explained, std::regex(asked))) << explained;
    EXPECT_TRUE(std::regex_search(explained, std::regex(told))) << explained;
  };
  StartWith("QB-210", std::make_unique<sim::SdModule>(uint8_t{42}, sim::Clock::now()), {"1"});
  ASSERT_TRUE(server->ServeUntil([&] { return !Info().empty(); }));
  expect_words(" SEND  FF 01 00 00 96 69 00 +sd-module +query: model\n",
               " RECV  FF 01 00 00 00 2A 2B +sd-module +reply: model 42\n");

  PutBehindLine(std::make_unique<sim::HdMicom>(
      sim::HdIdentity{}, sim::LoaderSetup{}, [this] { return line.Settings(); },
      sim::Clock::now()));
  config.model = "QB-310";
  Install();
  Launch({"1"});
  ASSERT_TRUE(ServeUntilWords("asked for its sensor"));
  ASSERT_TRUE(server->ServeUntil([&] { return Info().find("2.1") != string::npos; }));
  expect_words(" SEND  FF E3 01 .* hd-micom +query: firmware version\n",
               " RECV  FF E3 01 .* hd-micom +answer: firmware version 2\\.1\n");
}

// What a daemon with its trace on has printed, explained.
TEST_F(CtlMonitor, FramesExplainTheTrace) {
  Start({"1"});
  Control(CAMERA_CODE_MENU);
  EXPECT_EQ(Line(21), "FF 01 00 03 00 5F 63 FF 01 00 00 00 00 01 FF 01 00 00 00 00 01");
  line.Send(Bytes{0xFF, 0x01, 0x00, 0x01});
  ASSERT_TRUE(sim::WaitUntil(
      [&] { return daemon->Output().find("RECV    4: FF 01 00 01 \n") != string::npos; }));
  const auto frames = [](const std::vector<string>& options) {
    auto run = std::make_unique<DaemonProcess>(RS232CTL_PATH, options);
    EXPECT_TRUE(run->WaitEnd().has_value());
    return run;
  };
  const std::regex expected(kTime +
                            " SEND  FF 01 00 03 00 5F 63 +pelco-d +extended: set preset 95\n" +
                            "(" + kTime + " SEND  FF 01 00 00 00 00 01 +pelco-d +stop\n){2}" +
                            kTime + " RECV  FF 01 00 01 +pelco-d +answer of the head: no alarm\n");
  const auto good = frames({"frames", "some line\n" + daemon->Output() + "another"});
  EXPECT_EQ(good->WaitEnd(), 0) << good->Errors();
  EXPECT_TRUE(std::regex_match(good->Output(), expected)) << good->Output();
  const struct {
    std::vector<string> options;
    int status;
    string output;
    string errors;
  } rows[] = {
      {{"frames", "0xA5,0x41,", "\\x01\\x00", "00:E7", "--json"},
       0,
       R"({"offset":0,"bytes":"A5 41 01 00 00 E7","text":".A....","protocol":"lens",)"
       R"("verdict":"good","words":"read: version"})"
       "\n",
       ""},
      {{"frames", "FF", "0"}, 2, "", "rs232ctl: '0' ends in half a byte\n"},
      {{"frames", "00000000  FF 01 00 00 00 00 01  |.......|\n00000007"},
       0,
       "     0  FF 01 00 00 00 00 01               pelco-d      stop\n",
       ""},
      {{"frames", "", " "}, 2, "", "rs232ctl: there are no bytes to explain\n"},
      // A damaged line costs no other.
      {{"frames", "daemon | S.03/03 09:05:07.  1234 SEND 2: 41\nx SEND 1: 42"},
       2,
       "x SEND  42                                 -            1 byte of no frame: \"B\"\n",
       "rs232ctl: 03/03 09:05:07.  1234: the trace line says 2 bytes and has 1\n"},
  };
  for (const auto& row : rows) {
    const auto run = frames(row.options);
    EXPECT_EQ(run->WaitEnd(), row.status);
    EXPECT_EQ(run->Output(), row.output);
    EXPECT_EQ(run->Errors(), row.errors);
  }
}

}  // namespace
