// What a device may do to the daemon from outside: signals, missing streams, pipes in place of
// files, a port that hangs.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <vector>

#include "lens/position.h"
#include "lens/video_source.h"
#include "sim/unique_fd.h"
#include "tests/system/device_fixture.h"

namespace {

using sim::milliseconds;

class Adversity : public DeviceTest {
 protected:
  // A pipe that is left would hold whoever writes the file next.
  ~Adversity() override {
    for (const std::string& path : pipes_)
      std::filesystem::remove(path);
  }

  void MakePipe(const std::string& path) {
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0644), 0) << path;
    pipes_.push_back(path);
  }

  // Waits until the start has come to the command channel.
  void AwaitChannel() {
    ASSERT_TRUE(sim::WaitUntil([] { return sim::IsPortBound("udp", RS232_COMMAND_PORT); }));
  }

 private:
  std::vector<std::string> pipes_;
};

TEST_F(Adversity, SignalsOfATerminalDoNotEndIt) {
  Start();
  for (const int signal : {SIGHUP, SIGPIPE}) {
    daemon->Signal(signal);
    ExpectLineQuiet();
  }
}

TEST_F(Adversity, ReaderOfTheTraceThatIsGone) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const sim::UniqueFd write_end(ends[1]);
  close(ends[0]);
  Install();
  daemon = std::make_unique<sim::DaemonProcess>(RS232D_PATH, std::vector<std::string>{"1"},
                                                write_end.Get());
  ASSERT_TRUE(daemon->WaitServing(config));
  ExpectLineQuiet();
  EXPECT_EQ(daemon->Stop(), 0);
  // The first line that is lost is one of the settings': it must not end the daemon either.
  std::filesystem::remove("/var/nvt/param.dat");
  daemon = std::make_unique<sim::DaemonProcess>(RS232D_PATH, std::vector<std::string>{},
                                                write_end.Get());
  ExpectEnd(0);
}

// Files opened without them would get their numbers, and messages would go into the line.
TEST_F(Adversity, NoStandardStreams) {
  Install();
  daemon = std::make_unique<sim::DaemonProcess>(
      "/bin/sh", std::vector<std::string>{"-c", "exec " RS232D_PATH " 1 0<&- 1>&- 2>&-"});
  ASSERT_TRUE(daemon->WaitServing(config));
  const sim::PtzClient client(config.ptz_port);
  ExpectLineQuiet();
  EXPECT_EQ(daemon->Stop(), 0);
  EXPECT_EQ(sim::Hex(line.Receive(1, milliseconds(0))), "");
}

// Where the descriptors of a process lead.
std::map<int, std::string> Descriptors(pid_t pid) {
  std::map<int, std::string> descriptors;
  for (const auto& entry :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
    std::error_code gone;
    descriptors[std::stoi(entry.path().filename())] =
        std::filesystem::read_symlink(entry.path(), gone);
  }
  return descriptors;
}

// The shell commands that it runs must not hold its line or its ports.
TEST_F(Adversity, DescriptorsAreClosedOnExec) {
  std::set<std::string> inherited;  // of whoever runs the tests
  for (const auto& [fd, target] : Descriptors(getpid())) {
    if ((fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0) inherited.insert(target);
  }
  for (const char* model : {"QB-620", "QB-210", "QB-310", "QB-420"}) {
    StartModel(model);
    int own = 0;
    for (const auto& [fd, target] : Descriptors(daemon->Pid())) {
      if (fd <= STDERR_FILENO || inherited.contains(target)) continue;
      ++own;
      const std::string info = sim::ReadTextFile("/proc/" + std::to_string(daemon->Pid()) +
                                                 "/fdinfo/" + std::to_string(fd));
      constexpr char kFlags[] = "flags:";
      const size_t at = info.find(kFlags) + strlen(kFlags);
      EXPECT_NE(std::stoul(info.substr(at), nullptr, 8) & O_CLOEXEC, 0U) << model << " " << target;
    }
    EXPECT_GE(own, 4) << model;  // the line, two UDP ports, the listener
    daemon->Signal(SIGKILL);
    ExpectEnd(-SIGKILL);
  }
}

TEST_F(Adversity, PipesInPlaceOfSettings) {
  config.model = "QB-420";
  Install();
  sim::InstallLens({});
  for (const char* path :
       {"/etc/udp_port_table.conf", VIDEO_SOURCE_PATH, MFZ_CONF_PATH, "/etc/temp.conf"})
    MakePipe(path);
  Launch();
  AwaitChannel();
  // The start asks for positions and sensor, then goes on to the loop.
  ASSERT_TRUE(WaitOutput("Click 'F' button")) << daemon->Output();
  Control(CAMERA_CODE_FOCUS, 1);
  Control(CAMERA_CODE_FOCUS, 0);
  ASSERT_TRUE(WaitOutput("--> saved")) << daemon->Output();
  EXPECT_NE(daemon->Output().find("temp.conf is already used"), std::string::npos);
  EXPECT_EQ(daemon->Stop(), 0);

  for (const char* path : {"/etc/capabilities.conf", "/var/nvt/param.dat"}) {
    MakePipe(path);
    Launch();
    ExpectEnd(0);
  }
}

// A listener with a full queue answers no connection: the probe of the port hangs.
class HungPort : public Adversity {
 protected:
  void SetUp() override {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(config.ptz_port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    const int on = 1;
    setsockopt(listener_.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    ASSERT_EQ(bind(listener_.Get(), generic, sizeof(address)), 0);
    ASSERT_EQ(listen(listener_.Get(), 0), 0);
    constexpr int kMoreThanFit = 4;
    for (int i = 0; i < kMoreThanFit; ++i) {
      clients_.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
      (void)!connect(clients_.back().Get(), generic, sizeof(address));
    }
    Install();
    Launch();
    AwaitChannel();
  }

 private:
  sim::UniqueFd listener_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  std::vector<sim::UniqueFd> clients_;
};

TEST_F(HungPort, DoesNotHoldTheStart) {
  ASSERT_TRUE(WaitErrors("PTZ TCP CONNECTION ERR [-1]\n")) << daemon->Errors();
  ExpectLineQuiet();
}

TEST_F(HungPort, DoesNotHoldTheEnd) {
  EXPECT_EQ(daemon->Stop(milliseconds(2000)), 0);
}

}  // namespace
