// The reboot that the firmware-update command ends in.
#include <sys/wait.h>

#include <fstream>
#include <sstream>

#include "ipc/csysmgr.h"
#include "sim/world.h"
#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

// A process of the device: a copy of sleep under a name of its own.
class Bystander {
 public:
  explicit Bystander(const std::string& path) {
    std::filesystem::copy_file("/bin/sleep", path,
                               std::filesystem::copy_options::overwrite_existing);
    pid_ = fork();
    if (pid_ != 0) return;
    execl(path.c_str(), path.c_str(), "1000", nullptr);
    _exit(127);
  }
  Bystander(const Bystander&) = delete;
  Bystander& operator=(const Bystander&) = delete;
  ~Bystander() {
    if (IsAlive()) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }

  pid_t Pid() const { return pid_; }

  // The signal that ended it, 0 while it runs.
  int EndedBy() {
    int status = 0;
    if (ended_by_ == 0 && waitpid(pid_, &status, WNOHANG) == pid_) ended_by_ = WTERMSIG(status);
    return ended_by_;
  }
  bool IsAlive() { return EndedBy() == 0; }

 private:
  pid_t pid_;
  int ended_by_ = 0;
};

struct ProgramRun {
  double uptime;
  std::string words;
  bool operator==(const ProgramRun&) const = default;
};

std::vector<ProgramRun> ProgramRuns() {
  std::vector<ProgramRun> runs;
  std::istringstream log(sim::ReadTextFile(sim::kProgramLog));
  for (std::string line; std::getline(log, line);) {
    std::istringstream fields(line);
    ProgramRun run;
    fields >> run.uptime >> std::ws;
    std::getline(fields, run.words);
    runs.push_back(run);
  }
  return runs;
}

double Uptime() {
  double uptime = 0;
  std::ifstream("/proc/uptime") >> uptime;
  return uptime;
}

using LensReboot = LensTest;

TEST_F(LensReboot, FirmwareCommandEndsTheDevice) {
  std::filesystem::remove(sim::kProgramLog);
  sim::UdpPeer manager(CSYSMGR_PORT);
  // The number of the next process.
  constexpr pid_t kLow = 15;
  if (getpid() < kLow) sim::WriteTextFile("/proc/sys/kernel/ns_last_pid", std::to_string(kLow - 1));
  Bystander low("/tmp/dev_kill_low");
  sim::WriteTextFile("/proc/sys/kernel/ns_last_pid", "100");
  Bystander killed("/tmp/dev_kill");
  Bystander killed_by_prefix("/tmp/dev_kill_too");
  Bystander termed("/tmp/dev_term");
  Bystander other("/tmp/dev_other");
  sim::WriteTextFile("/etc/killList", "\n/tmp/dev_kill\r\n/tmp/" + std::string(40, 'x') + "\n");
  sim::WriteTextFile("/etc/termList", "/tmp/dev_kill\n/tmp/dev_term\n");

  StartLens({.zoom = 0, .focus = 200});
  const double begin = Uptime();
  SendCommand(sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
  const auto notice = manager.Receive();
  ASSERT_TRUE(notice.has_value());
  EXPECT_EQ(sim::Hex(*notice), "53 59 53 50 00 00 00 00 54 42 45 52");
  ASSERT_TRUE(WaitOutput("CICOMM_PCMD_MICOM_FIRMWARE_UPDATE\n"));
  ASSERT_TRUE(sim::WaitUntil([] { return ProgramRuns().size() >= 4; }, milliseconds(25000)));

  const std::vector<ProgramRun> runs = ProgramRuns();
  ASSERT_EQ(runs.size(), 4U);
  EXPECT_EQ(runs[0].words, "micom_reset ");
  EXPECT_EQ(runs[1].words, "umount /mnt/sd/");
  EXPECT_EQ(runs[2].words, "umount /mnt/usb/");
  EXPECT_EQ(runs[3].words, "reboot ");
  // Uptimes come in hundredths of a second.
  EXPECT_GE(runs[0].uptime - begin, 10.0 - 0.02);
  EXPECT_GE(runs[1].uptime - runs[0].uptime, 3.0 - 0.02);
  EXPECT_LT(runs[3].uptime - runs[1].uptime, 1.0);

  EXPECT_TRUE(sim::WaitUntil([&] { return !killed.IsAlive() && !termed.IsAlive(); }));
  EXPECT_EQ(killed.EndedBy(), SIGKILL);
  EXPECT_EQ(killed_by_prefix.EndedBy(), SIGKILL);
  EXPECT_EQ(termed.EndedBy(), SIGTERM);
  EXPECT_TRUE(other.IsAlive());
  if (low.Pid() == kLow) {
    EXPECT_TRUE(low.IsAlive());
  }
  // It waits for the system to end it, and serves nobody.
  EXPECT_FALSE(daemon->WaitEnd(milliseconds(0)).has_value());
}

}  // namespace
