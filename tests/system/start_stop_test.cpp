// Start and end of the real daemon: every way in, every way out.
#include <sys/ipc.h>
#include <sys/sem.h>

#include <filesystem>

#include "cmmap/param_block.h"
#include "tests/system/device_fixture.h"

namespace {

using sim::milliseconds;

using StartStop = DeviceTest;

// --- Early ends ----------------------------------------------------------------------------------

TEST_F(StartStop, NothingToServe) {
  const struct {
    sim::DeviceConfig device;
    void (*spoil)() = [] {};  // once its files are laid out
    const char* output = "";
  } rows[] = {
      {{},
       [] { std::filesystem::remove(PARAM_BLOCK_PATH); },
       "[CMMAP_Init] error open, reason(No such file or directory)\n"},
      {{},
       [] { std::filesystem::resize_file(PARAM_BLOCK_PATH, PARAM_BLOCK_SIZE - 1); },
       "[CMMAP_Init] error open, reason(file shorter than 23972 bytes)\n"},
      {{}, [] { std::filesystem::remove("/etc/capabilities.conf"); }},
      {{.serial_count = 1}},
      {{.serial_path = "/dev/ttyS9"}},
      {{.serial_path = "/etc"}},
      {{.serial_path = ""}},
      {{.serial_path = "/dev/ttyS1/x"}},
      {{.serial_path = "/" + std::string(2040, 'y')}},
  };
  const termios before = line.Settings();
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    config = row.device;
    Install();
    row.spoil();
    Launch();
    ExpectEnd(0);
    EXPECT_EQ(daemon->Output(), row.output);
    EXPECT_EQ(daemon->Errors(), "");
    EXPECT_EQ(line.Settings().c_cflag, before.c_cflag);
  }
}

TEST_F(StartStop, UdpPortTaken) {
  const sim::UdpPeer holder(config.udp_port);
  Install();
  Launch();
  ExpectEnd(1);
  // <9> is facility user, priority alert.
  const std::string logged = syslog.WaitFor("[RS232] error while bind socket");
  EXPECT_EQ(logged.substr(0, 3), "<9>") << logged;
  EXPECT_EQ(daemon->Output() + daemon->Errors(), "");
}

TEST_F(StartStop, NoDescriptorForTheUdpSocket) {
  Install();
  // Standard streams and the serial line take all that there are; syslog has none left either.
  sim::DaemonProcess shell(
      "/bin/sh", {"-c", "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; ulimit -n 4; exec " RS232D_PATH});
  EXPECT_EQ(shell.WaitEnd(), 1);
}

TEST_F(StartStop, CommandChannelPortTaken) {
  const sim::UdpPeer holder(RS232_COMMAND_PORT);
  Install();
  const termios before = line.Settings();
  Launch();
  ExpectEnd(0);
  EXPECT_EQ(daemon->Output(),
            "[ZSK_OpenLocalUDPSSocket] local bind error. exit, 98 'Address already in use\n");
  EXPECT_EQ(daemon->Errors(), "[CICOMM_Init] error, reason(ZSK_OpenLocalUDPSSocket)\n");
  EXPECT_EQ(line.Settings().c_lflag, before.c_lflag);
}

// --- Starts that go on ---------------------------------------------------------------------------

TEST_F(StartStop, PtzServerIsOffUnlessEnabledWithASignedPort) {
  const struct {
    int32_t enable;
    int32_t port;
  } rows[] = {{2, 4001}, {0, 4001}, {1, 0}, {1, -1}, {1, 32768}, {1, 65535}};
  for (const auto& row : rows) {
    config.ptz_enable = row.enable;
    config.ptz_port = row.port;
    Start();
    ExpectLineQuiet();
    EXPECT_FALSE(sim::IsPortBound("tcp", row.port & 0xFFFF)) << row.enable << " " << row.port;
    EXPECT_EQ(daemon->Errors(), "");
    EXPECT_EQ(daemon->Stop(), 0);
  }
}

TEST_F(StartStop, PortTableMissingGivesAnyPort) {
  Install();
  ASSERT_TRUE(std::filesystem::remove("/etc/udp_port_table.conf"));
  Launch();
  ASSERT_TRUE(daemon->WaitServing(config));
  EXPECT_FALSE(sim::IsPortBound("udp", config.udp_port));
  Control(CAMERA_CODE_ZOOM, 0, 0, 1);
  EXPECT_EQ(Line(7), "FF 01 00 20 00 00 21");
}

TEST_F(StartStop, DeviceThatIsNoTerminalIsServedAllTheSame) {
  config.serial_path = "/dev/null";
  Start();
  EXPECT_FALSE(daemon->WaitEnd(milliseconds(100)).has_value());
}

// --- Trace level ------------------------------------------------------------------------------

TEST_F(StartStop, TraceLevelIsTheOnlyArgument) {
  const struct {
    std::vector<std::string> arguments;
    bool traces;
  } rows[] = {{{}, false},    {{"1"}, true},    {{"-7"}, true},
              {{"0"}, false}, {{"abc"}, false}, {{"1", "1"}, false}};
  for (const auto& row : rows) {
    Start(row.arguments);
    ExpectLineQuiet();
    EXPECT_EQ(daemon->Stop(), 0);
    EXPECT_EQ(daemon->Output().find("   SEND    1: 5A \n") != std::string::npos, row.traces)
        << daemon->Output();
  }
}

// --- The line ---------------------------------------------------------------------------------

TEST_F(StartStop, LineSettingsAreSetAndGivenBack) {
  termios own = line.Settings();
  own.c_iflag = IXON | ICRNL;
  own.c_lflag = ICANON | ECHO;
  own.c_cflag = CS7 | PARENB | CREAD | HUPCL;
  cfsetospeed(&own, B19200);
  cfsetispeed(&own, B19200);
  line.SetSettings(own);
  const termios before = line.Settings();
  config.baud_rate = 4800;
  config.parity = 7;  // no known parity: none
  config.stop_bits = 2;

  Start();
  const termios in_use = line.Settings();
  EXPECT_EQ(cfgetospeed(&in_use), static_cast<speed_t>(B4800));
  EXPECT_EQ(in_use.c_cflag & (CSIZE | PARENB | CSTOPB), static_cast<tcflag_t>(CS8 | CSTOPB));
  EXPECT_EQ(in_use.c_lflag, 0U);
  EXPECT_EQ(daemon->Stop(), 0);
  const termios after = line.Settings();
  EXPECT_EQ(after.c_cflag, before.c_cflag);
  EXPECT_EQ(after.c_iflag, before.c_iflag);
  EXPECT_EQ(after.c_lflag, before.c_lflag);
}

TEST_F(StartStop, EndReleasesEverything) {
  Start();
  EXPECT_EQ(semget(PARAM_BLOCK_KEY, 1, 0), -1);  // as soon as the settings are read
  sim::PtzClient client(config.ptz_port);
  EXPECT_EQ(daemon->Stop(), 0);
  EXPECT_TRUE(client.WaitClosed());
  EXPECT_FALSE(sim::IsPortBound("udp", config.udp_port));
  EXPECT_FALSE(sim::IsPortBound("udp", RS232_COMMAND_PORT));
  EXPECT_FALSE(sim::IsPortBound("tcp", config.ptz_port));
  Start();
}

}  // namespace
