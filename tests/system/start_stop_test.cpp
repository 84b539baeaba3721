// Start and exit of the real daemon: every way in and out.
#include <sys/ipc.h>
#include <sys/sem.h>

#include <filesystem>

#include "cmmap/param_block.h"
#include "tests/system/device_fixture.h"

namespace {

using StartStop = DeviceTest;

// --- Failed starts -------------------------------------------------------------------------------

TEST_F(StartStop, ExitsWhenThereIsNothingToServe) {
  const struct {
    sim::DeviceConfig device;
    void (*spoil)() = [] {};  // runs after Install
  } rows[] = {
      {{}, [] { std::filesystem::remove(PARAM_BLOCK_PATH); }},
      {{}, [] { std::filesystem::resize_file(PARAM_BLOCK_PATH, PARAM_BLOCK_SIZE - 1); }},
      {{}, [] { std::filesystem::remove("/etc/capabilities.conf"); }},
      {{.serial_count = 1}},
      {{.serial_path = "/dev/ttyS9"}},
      {{.serial_path = "/etc"}},
      {{.serial_path = "/" + std::string(2040, 'y')}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    config = row.device;
    Install();
    row.spoil();
    Launch();
    ExpectEnd(0);
    EXPECT_EQ(daemon->Errors(), "");
  }
}

TEST_F(StartStop, ExitsWhenAPortIsInUse) {
  const termios before = line.Settings();
  for (const auto& [port, status] : {std::pair(RS232_COMMAND_PORT, 0), {config.udp_port, 1}}) {
    const sim::UdpPeer holder(port);
    Install();
    Launch();
    ExpectEnd(status);
    EXPECT_EQ(line.Settings().c_lflag == before.c_lflag, status == 0);
  }
  // <9> is facility user, severity alert.
  EXPECT_TRUE(syslog.WaitFor("[RS232] error while bind socket").starts_with("<9>"));
}

// --- Successful starts ---------------------------------------------------------------------------

TEST_F(StartStop, RunsThePtzServerOnlyIfEnabledWithASignedPort) {
  for (const auto& [enable, port] : {std::pair(2, 4001), {0, 4001}, {1, 0}, {1, -1}, {1, 32768}}) {
    config.ptz_enable = enable;
    config.ptz_port = port;
    Start();
    ExpectLineQuiet();
    EXPECT_FALSE(sim::IsPortBound("tcp", port & 0xFFFF)) << enable << " " << port;
    EXPECT_EQ(daemon->Errors(), "");
    EXPECT_EQ(daemon->Stop(), 0);
  }
}

TEST_F(StartStop, UsesAnyPortWithoutAPortTable) {
  Install();
  ASSERT_TRUE(std::filesystem::remove("/etc/udp_port_table.conf"));
  Launch();
  ASSERT_TRUE(daemon->WaitServing(config));
  EXPECT_FALSE(sim::IsPortBound("udp", config.udp_port));
  Control(CAMERA_CODE_ZOOM, 0, 0, 1);
  EXPECT_EQ(Line(7), "FF 01 00 20 00 00 21");
}

TEST_F(StartStop, AcceptsOnlyTheTraceLevelAsArgument) {
  const std::pair<std::vector<std::string>, bool> rows[] = {
      {{}, false}, {{"-7"}, true}, {{"0"}, false}, {{"1", "1"}, false}};
  for (const auto& [arguments, traces] : rows) {
    Start(arguments);
    ExpectLineQuiet();
    EXPECT_EQ(daemon->Stop(), 0);
    EXPECT_EQ(daemon->Output().find("   SEND    1: 5A \n") != std::string::npos, traces)
        << daemon->Output();
  }
}

// --- The line ---------------------------------------------------------------------------------

TEST_F(StartStop, SetsAndRestoresTheLineSettings) {
  termios own = line.Settings();
  own.c_iflag = IXON | ICRNL;
  own.c_lflag = ICANON | ECHO;
  own.c_cflag = CS7 | PARENB | CREAD | HUPCL;
  cfsetospeed(&own, B19200);
  line.SetSettings(own);
  const termios before = line.Settings();
  Start();
  EXPECT_EQ(semget(PARAM_BLOCK_KEY, 1, 0), -1);  // removed after the settings are read
  EXPECT_EQ(line.Settings().c_lflag, 0U);
  EXPECT_EQ(daemon->Stop(), 0);
  const termios after = line.Settings();
  EXPECT_EQ(std::tuple(after.c_cflag, after.c_iflag, after.c_lflag),
            std::tuple(before.c_cflag, before.c_iflag, before.c_lflag));
}

}  // namespace
