// Start and end of the real daemon: every way in, every way out.
#include <netinet/in.h>
#include <sys/ipc.h>
#include <sys/sem.h>

#include <filesystem>
#include <functional>

#include "cmmap/param_block.h"
#include "tests/system/device_fixture.h"

namespace {

using sim::milliseconds;

class StartStop : public DeviceTest {
 protected:
  void Remove(const std::string& path) { ASSERT_TRUE(std::filesystem::remove(path)) << path; }

  void ExpectEarlyEnd(int status) {
    Launch();
    ExpectEnd(status);
  }
};

// --- Early ends ----------------------------------------------------------------------------------

TEST_F(StartStop, NothingToServe) {
  const auto serial_path = [](const char* path) {
    return [path](sim::DeviceConfig* device) { device->serial_path = path; };
  };
  const struct {
    std::function<void(sim::DeviceConfig* device)> change;  // before the files are laid out
    void (*spoil)();                                        // afterwards
    const char* output;
  } rows[] = {
      {nullptr, [] { std::filesystem::remove(PARAM_BLOCK_PATH); },
       "[CMMAP_Init] error open, reason(No such file or directory)\n"},
      {nullptr, [] { std::filesystem::resize_file(PARAM_BLOCK_PATH, PARAM_BLOCK_SIZE - 1); },
       "[CMMAP_Init] error open, reason(file shorter than 23972 bytes)\n"},
      {[](sim::DeviceConfig* device) { device->serial_count = 1; }, nullptr, ""},
      {serial_path("/dev/ttyS9"), nullptr, ""},
      {serial_path("/etc"), nullptr, ""},
      {serial_path(""), nullptr, ""},
      {serial_path("/dev/ttyS1/x"), nullptr, ""},
      {nullptr, [] { std::filesystem::remove("/etc/capabilities.conf"); }, ""},
  };
  const termios before = line.Settings();
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    config = {};
    if (row.change != nullptr) row.change(&config);
    Install();
    if (row.spoil != nullptr) row.spoil();
    ExpectEarlyEnd(0);
    EXPECT_EQ(daemon->Output(), row.output);
    EXPECT_EQ(daemon->Errors(), "");
    EXPECT_EQ(line.Settings().c_cflag, before.c_cflag);
  }
}

TEST_F(StartStop, UdpPortTaken) {
  const sim::UdpPeer holder(config.udp_port);
  Install();
  ExpectEarlyEnd(1);
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
  ExpectEarlyEnd(0);
  EXPECT_EQ(daemon->Output(),
            "[ZSK_OpenLocalUDPSSocket] local bind error. exit, 98 'Address already in use\n");
  EXPECT_EQ(daemon->Errors(), "[CICOMM_Init] error, reason(ZSK_OpenLocalUDPSSocket)\n");
  EXPECT_EQ(line.Settings().c_lflag, before.c_lflag);
}

// --- Starts that go on ---------------------------------------------------------------------------

TEST_F(StartStop, PtzPortThatCannotBeListenedOn) {
  // Bound but not listening: the probe is refused, and so is the bind.
  const int holder = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(config.ptz_port));
  ASSERT_EQ(bind(holder, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  Install();
  Launch();
  ASSERT_TRUE(sim::WaitUntil([&] {
    return daemon->Errors().find("PTZ TCP CONNECTION ERR [-1]\n") != std::string::npos;
  })) << daemon->Errors();
  EXPECT_EQ(daemon->Errors(),
            "new [ZSK_ConnectTCPSocket/connect] Error Number : 111, Error String : Connection "
            "refused\n[ZSK_BindTCPSocketEx] error while bind tcp socket : Address already in use\n"
            "PTZ TCP CONNECTION ERR [-1]\n");
  ExpectLineQuiet();
  EXPECT_EQ(daemon->Stop(), 0);
  close(holder);
}

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
  Remove("/etc/udp_port_table.conf");
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
  EXPECT_EQ(daemon->Stop(), 0);
}

TEST_F(StartStop, HostileConfigurationFiles) {
  Install();
  const std::string long_line(65536, 'x');
  const std::string zeros(300, '\0');
  sim::WriteTextFile("/etc/udp_port_table.conf", long_line + "\n" + zeros + "\n" + long_line + "=" +
                                                     long_line + "\n" +
                                                     "RS232_DAEMON_PORT=10020\n");
  sim::WriteTextFile("/etc/capabilities.conf",
                     zeros + "=1\n[Serial]\n#Serial.2.DevPath=/dev/no\nSerial.2.DevPath = \"" +
                         config.serial_path + "\"\n");
  Launch();
  ASSERT_TRUE(daemon->WaitServing(config)) << daemon->Output();
  ExpectLineQuiet();
  EXPECT_EQ(daemon->Stop(), 0);

  // A device path longer than its buffer is cut, and is no device.
  sim::WriteTextFile("/etc/capabilities.conf", "Serial.2.DevPath=/" + std::string(2040, 'y'));
  ExpectEarlyEnd(0);
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

  for (const bool by_datagram : {false, true}) {
    Start();
    const termios in_use = line.Settings();
    EXPECT_EQ(cfgetospeed(&in_use), static_cast<speed_t>(B4800));
    EXPECT_EQ(in_use.c_cflag & (CSIZE | PARENB | CSTOPB), static_cast<tcflag_t>(CS8 | CSTOPB));
    EXPECT_EQ(in_use.c_iflag, static_cast<tcflag_t>(IGNPAR));
    EXPECT_EQ(in_use.c_lflag, 0U);
    EXPECT_EQ(in_use.c_oflag, 0U);
    if (by_datagram) {
      SendUdp(sim::DaemonDatagram(RS232_UDP_STOP));
      ExpectEnd(0);
    } else {
      EXPECT_EQ(daemon->Stop(), 0);
    }
    const termios after = line.Settings();
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
  }
}

TEST_F(StartStop, EndReleasesEveryPort) {
  Start();
  sim::PtzClient client(config.ptz_port);
  EXPECT_EQ(daemon->Stop(), 0);
  EXPECT_TRUE(client.WaitClosed());
  EXPECT_FALSE(sim::IsPortBound("udp", config.udp_port));
  EXPECT_FALSE(sim::IsPortBound("udp", RS232_COMMAND_PORT));
  EXPECT_FALSE(sim::IsPortBound("tcp", config.ptz_port));
  Start();
  EXPECT_EQ(daemon->Stop(), 0);
}

// --- The semaphore of the parameter block -----------------------------------------------------

TEST_F(StartStop, SemaphoreIsMadeAndRemoved) {
  Start();
  EXPECT_EQ(semget(PARAM_BLOCK_KEY, 1, 0), -1);
  EXPECT_EQ(daemon->Stop(), 0);
}

TEST_F(StartStop, SemaphoreOfAnotherProcessIsKept) {
  const int set = semget(PARAM_BLOCK_KEY, 1, IPC_CREAT | IPC_EXCL | 0666);
  ASSERT_GE(set, 0);
  ASSERT_EQ(semctl(set, 0, SETVAL, 1), 0);
  Start();
  EXPECT_EQ(semget(PARAM_BLOCK_KEY, 1, 0), set);
  EXPECT_EQ(semctl(set, 0, GETVAL), 1);
  EXPECT_EQ(daemon->Stop(), 0);
}

}  // namespace
