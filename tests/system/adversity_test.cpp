// What a device may do to the daemon from outside: signals, missing streams, pipes in place of
// files, a port that hangs.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <csignal>
#include <filesystem>

#include "lens/position.h"
#include "lens/video_source.h"
#include "net/tcp_socket.h"
#include "sim/unique_fd.h"
#include "tests/system/device_fixture.h"

namespace {

using sim::milliseconds;

using Adversity = DeviceTest;

TEST_F(Adversity, TerminalAndReaderOfTheTraceThatAreGone) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const sim::UniqueFd write_end(ends[1]);
  close(ends[0]);
  Install();
  const sim::LaunchOptions options = {.output_fd = write_end.Get(), .preload = "", .variables = {}};
  Launch({"1"}, options);
  ASSERT_TRUE(WaitServing());
  for (const int signal : {SIGHUP, SIGPIPE}) {
    daemon->Signal(signal);
    ExpectLineQuiet();
  }
  EXPECT_EQ(daemon->Stop(), 0);
  // The first line that is lost is one of the settings': it must not end the daemon either.
  std::filesystem::remove("/var/nvt/param.dat");
  Launch({}, options);
  ExpectEnd(0);
}

// Real time: a shell prepares the descriptors.
class RealTimeShell : public DeviceTest {};

// Files opened without standard streams would get their numbers, and messages would go into the
// line.
TEST_F(RealTimeShell, NoStandardStreams) {
  Install();
  DeviceRig::Launch("/bin/sh", {"-c", "exec " RS232D_PATH " 1 0<&- 1>&- 2>&-"});
  ASSERT_TRUE(daemon->WaitServing(config));
  const sim::PtzClient client(config.ptz_port);
  ExpectLineQuiet();
  EXPECT_EQ(daemon->Stop(), 0);
  EXPECT_EQ(sim::Hex(line.Receive(1, milliseconds(0))), "");
}

// Standard streams and the serial line take every descriptor; syslog gets none either.
TEST_F(RealTimeShell, NoDescriptorForTheUdpSocket) {
  Install();
  DeviceRig::Launch(
      "/bin/sh", {"-c", "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; ulimit -n 4; exec " RS232D_PATH});
  ExpectEnd(1);
}

TEST_F(Adversity, PipesInPlaceOfSettings) {
  config.model = "QB-420";
  const std::pair<const char*, bool> rows[] = {
      {"/etc/udp_port_table.conf", true}, {VIDEO_SOURCE_PATH, true},     {MFZ_CONF_PATH, true},
      {"/etc/capabilities.conf", false},  {"/var/nvt/param.dat", false},
  };
  for (const auto& [path, goes_on] : rows) {
    SCOPED_TRACE(path);
    Install();
    sim::InstallLens({});
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path, 0644), 0);
    Launch();
    // The start asks for positions and sensor, then goes on to the loop.
    const bool says =
        WaitOutput(path == std::string(MFZ_CONF_PATH) ? "Click 'F' button"
                                                      : "restored posZoom=0, posFocus=200",
                   1, milliseconds(goes_on ? 15'000 : 0));
    EXPECT_EQ(says, goes_on);
    if (goes_on) daemon->Signal(SIGTERM);
    ExpectEnd(0);
    std::filesystem::remove(path);  // it would hold whoever writes the file next
  }
}

// A listener with a full queue answers no connection, so that the probe of the port hangs.
TEST_F(Adversity, PortThatHangsHoldsNeitherStartNorEnd) {
  const sim::UniqueFd listener(ZSK_BindTCPSocketEx(config.ptz_port, ZSK_BIND_REUSEADDR));
  ASSERT_EQ(listen(listener.Get(), 0), 0);
  std::array<sim::UniqueFd, 4> clients;  // more than fit
  for (sim::UniqueFd& client : clients) {
    int fd = -1;
    ZSK_ASyncConnectTCPSocket(&fd, "127.0.0.1", config.ptz_port);
    client.Reset(fd);
  }
  Install();
  Launch();
  ASSERT_TRUE(sim::WaitUntil([] { return sim::IsPortBound("udp", RS232_COMMAND_PORT); }));
  EXPECT_EQ(daemon->Stop(milliseconds(2000)), 0);
  Launch();
  ASSERT_TRUE(WaitErrors("PTZ TCP CONNECTION ERR [-1]\n")) << daemon->Errors();
  ExpectLineQuiet();
}

}  // namespace
