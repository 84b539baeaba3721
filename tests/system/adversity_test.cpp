// Adverse environments: signals, missing streams, pipes in place of files, an unresponsive port.
#include <fcntl.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "lens/position.h"
#include "lens/video_source.h"
#include "net/tcp_socket.h"
#include "sim/leftovers.h"
#include "tests/system/device_fixture.h"
#include "tools/unique_fd.h"

namespace {

using sim::milliseconds;

using Adversity = DeviceTest;

TEST_F(Adversity, SurvivesAClosedTerminalAndTraceReader) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const tools::UniqueFd write_end(ends[1]);
  close(ends[0]);
  Install();
  const sim::LaunchOptions options = {
      .output_fd = write_end.Get(), .preload = "", .variables = {"NOTIFY_SOCKET=nowhere"}};
  Launch({"1"}, options);
  ASSERT_TRUE(WaitServing());
  for (const int signal : {SIGHUP, SIGPIPE}) {
    daemon->Signal(signal);
    ExpectLineQuiet();
  }
  EXPECT_EQ(daemon->Stop(), 0);
  // The first lost line is one of the settings; losing it must not kill the daemon, either.
  std::filesystem::remove("/var/nvt/param.dat");
  Launch({}, options);
  ExpectEnd(0);
}

// The daemon serves and exits although nobody reads its output. It drops whole lines and reports
// their number once output is read again.
TEST_F(Adversity, DropsOutputThatNobodyReads) {
  constexpr int kLines = 300;
  constexpr size_t kLineSize = sizeof("11/23 18:00:00.123456   SEND 1000: ") - 1 + 3 * 1000;
  for (const char* kind : {"terminal", "pipe", "socket"}) {
    int ends[2];  // reader, daemon
    if (*kind == 't') {
      ASSERT_EQ(openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr), 0);
      termios raw = {};
      cfmakeraw(&raw);
      tcsetattr(ends[1], TCSANOW, &raw);
    } else {
      ASSERT_EQ(*kind == 'p' ? pipe(ends) : socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    }
    const tools::UniqueFd reader(ends[0]);
    const tools::UniqueFd writer(ends[1]);
    Install();
    Launch({"1"}, {.output_fd = writer.Get(), .preload = "", .variables = {"NOTIFY_SOCKET=/no"}});
    ASSERT_TRUE(WaitServing());
    const auto send = [this] {
      SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, sim::Bytes(1000, 0x42)));
      EXPECT_EQ(line.Receive(1000).size(), 1000U);
    };
    for (int i = 0; i < kLines; ++i)
      send();
    std::string text;
    const auto read_all = [&] {
      char piece[4096];
      while (sim::WaitReady(reader.Get(), POLLIN, sim::Clock::now() + milliseconds(50)))
        text.append(piece, static_cast<size_t>(read(reader.Get(), piece, sizeof(piece))));
    };
    read_all();
    send();
    read_all();
    int lines = 0;
    int dropped = 0;
    std::istringstream stream(text);
    for (std::string each; std::getline(stream, each);) {
      lines += each.size() == kLineSize ? 1 : 0;
      sscanf(each.c_str(), "[rs232d] %d lines of output dropped", &dropped);
    }
    EXPECT_GT(dropped, 0) << kind;
    EXPECT_EQ(lines + dropped, kLines + 1) << kind;
    EXPECT_EQ(fcntl(writer.Get(), F_GETFL) & O_NONBLOCK, 0);
    for (int i = 0; i < kLines; ++i)
      send();
    EXPECT_EQ(daemon->Stop(milliseconds(1000)), 0);
  }
}

// Real time, because a shell prepares the descriptors.
class RealTimeShell : public DeviceTest {};

// The parent process may leave open descriptors, blocked signals and resource limits.
TEST_F(RealTimeShell, SurvivesAnyInheritedState) {
  const rlimit many = {.rlim_cur = 4096, .rlim_max = 4096};
  setrlimit(RLIMIT_NOFILE, &many);
  std::vector<tools::UniqueFd> left_open;
  for (int i = 0; i < 1100; ++i)
    left_open.emplace_back(dup(STDIN_FILENO));
  Install();
  DeviceRig::Launch("/bin/sh", {"-c", "cd /tmp; exec env --block-signal '" RS232D_PATH "' 1"});
  ASSERT_TRUE(WaitServing()) << daemon->Errors();
  // Only now, because the runtime of a sanitizer writes a file before main().
  const rlimit none = {};
  ASSERT_EQ(prlimit(daemon->Pid(), RLIMIT_FSIZE, &none, nullptr), 0);
  ExpectLineQuiet();
  EXPECT_LT(sim::DescriptorCount(daemon->Pid()), 12U);
  EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(daemon->Pid()) + "/cwd"), "/");
  EXPECT_EQ(daemon->Stop(), 0);
}

// Without standard streams, opened files would get their numbers and receive the messages: these
// must not reach the line.
TEST_F(RealTimeShell, RunsWithoutStandardStreams) {
  Install();
  DeviceRig::Launch("/bin/sh", {"-c", "exec '" RS232D_PATH "' 1 0<&- 1>&- 2>&-"});
  ASSERT_TRUE(daemon->WaitServing(config));
  const sim::PtzClient client(config.ptz_port);
  ExpectLineQuiet();
  EXPECT_EQ(daemon->Stop(), 0);
  EXPECT_EQ(sim::Hex(line.Receive(1, milliseconds(0))), "");
}

TEST_F(Adversity, IgnoresPipesInPlaceOfSettings) {
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
    // The start reads positions and sensor, then enters the loop.
    const bool says =
        WaitOutput(path == std::string(MFZ_CONF_PATH) ? "Click 'F' button"
                                                      : "restored posZoom=0, posFocus=200",
                   1, milliseconds(goes_on ? 15'000 : 0));
    EXPECT_EQ(says, goes_on);
    if (goes_on) daemon->Signal(SIGTERM);
    ExpectEnd(0);
    std::filesystem::remove(path);  // a later writer would block on it
  }
}

// A listener with a full queue answers no connection attempt, so the check of the port hangs.
TEST_F(Adversity, UnresponsivePortDelaysNeitherStartNorStop) {
  const tools::UniqueFd listener(ZSK_BindTCPSocketEx(config.ptz_port, ZSK_BIND_REUSEADDR));
  ASSERT_EQ(listen(listener.Get(), 0), 0);
  std::array<tools::UniqueFd, 4> clients;  // more than the backlog
  for (tools::UniqueFd& client : clients) {
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
