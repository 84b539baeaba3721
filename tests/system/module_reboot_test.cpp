// What follows an update: the notice, the pause, the reboot in its order.
#include <csignal>
#include <filesystem>
#include <map>
#include <sstream>

#include "sim/world.h"
#include "tests/system/update_fixture.h"

namespace {

using sim::milliseconds;

// The log has hundredths of a second, cut off.
constexpr double kLogStep = 0.02;
constexpr char kNotice[] = "53 59 53 50 00 00 00 00 54 42 45 52";

// A program run of the log.
struct ProgramRun {
  double uptime;
  std::string command;
};

std::vector<ProgramRun> ProgramRuns() {
  std::istringstream log(sim::ReadTextFile(sim::kProgramLog));
  std::vector<ProgramRun> runs;
  for (ProgramRun run; log >> run.uptime;) {
    std::getline(log >> std::ws, run.command);
    run.command.erase(run.command.find_last_not_of(' ') + 1);
    runs.push_back(run);
  }
  return runs;
}

double Uptime() {
  return std::stod(sim::ReadTextFile("/proc/uptime"));
}

// Waits until so many device programs were run.
bool WaitForRuns(size_t count, milliseconds limit) {
  return sim::WaitUntil([&] { return ProgramRuns().size() >= count; }, limit);
}

class ModuleReboot : public UpdateTest {
 protected:
  void SetUp() override {
    UpdateTest::SetUp();
    unlink(sim::kProgramLog);
  }

  void ExpectRunsAfter(double noticed) {
    ASSERT_TRUE(WaitForRuns(4, milliseconds(20'000))) << sim::ReadTextFile(sim::kProgramLog);
    const std::vector<ProgramRun> runs = ProgramRuns();
    ASSERT_EQ(runs.size(), 4U);
    EXPECT_EQ(runs[0].command, "micom_reset");
    EXPECT_EQ(runs[1].command, "umount /mnt/sd/");
    EXPECT_EQ(runs[2].command, "umount /mnt/usb/");
    EXPECT_EQ(runs[3].command, "reboot");
    EXPECT_GE(runs[0].uptime - noticed, 10 - kLogStep);
    EXPECT_LE(runs[0].uptime - noticed, 11.5);
    EXPECT_GE(runs[1].uptime - runs[0].uptime, 3 - kLogStep);
    EXPECT_LE(runs[3].uptime - runs[0].uptime, 4.5);
    EXPECT_GE(runs[2].uptime, runs[1].uptime);
    EXPECT_GE(runs[3].uptime, runs[2].uptime);
  }
};

// A process that a list of the reboot names. Its number is one that the lists reach.
class Victim {
 public:
  explicit Victim(const std::string& name) : path_(std::string(sim::kWorldDirectory) + "/" + name) {
    std::filesystem::create_symlink("/bin/sleep", path_);
    constexpr pid_t kFirstReached = 20;
    while (true) {
      process_ = std::make_unique<sim::DaemonProcess>(path_, std::vector<std::string>{"60"});
      if (process_->Pid() >= kFirstReached) return;
    }
  }
  Victim(const Victim&) = delete;
  Victim& operator=(const Victim&) = delete;
  ~Victim() { std::filesystem::remove(path_); }
  const std::string& Path() const { return path_; }
  sim::DaemonProcess& Process() { return *process_; }

 private:
  std::string path_;
  std::unique_ptr<sim::DaemonProcess> process_;
};

TEST_F(ModuleReboot, AfterAnUpdate) {
  Victim killed("killed");
  Victim ended("ended");
  Victim spared("spared");
  sim::WriteTextFile("/etc/killList", "/bin/nothing\n" + killed.Path() + "\n");
  sim::WriteTextFile("/etc/termList", ended.Path() + "\r\n");
  StartMicom({});
  WriteImage(Payload(300));
  const auto notice = OrderUpdate(sim::kPatience);
  const double noticed = Uptime();
  ASSERT_TRUE(notice.has_value());
  EXPECT_EQ(sim::Hex(*notice), kNotice);
  EXPECT_TRUE(Loader()->IsComplete());
  // The pause ends neither by a signal nor by an order to stop.
  daemon->Signal(SIGTERM);
  SendUdp(sim::DaemonDatagram(RS232_UDP_STOP));
  const double cpu_before = daemon->CpuSeconds();

  ASSERT_TRUE(WaitForRuns(1, milliseconds(12'000)));
  const double reset = ProgramRuns()[0].uptime;
  EXPECT_EQ(killed.Process().WaitEnd(), -SIGKILL);
  EXPECT_GE(Uptime() - reset, 2 - kLogStep);
  EXPECT_EQ(ended.Process().WaitEnd(), -SIGTERM);
  const double termed = Uptime();
  ExpectRunsAfter(noticed);
  EXPECT_GE(ProgramRuns()[1].uptime - termed, 1 - 0.1);
  EXPECT_FALSE(spared.Process().WaitEnd(milliseconds(0)).has_value());
  // Then it waits for the system to end it, and costs nothing.
  EXPECT_FALSE(daemon->WaitEnd(milliseconds(300)).has_value());
  EXPECT_LT(daemon->CpuSeconds() - cpu_before, 0.3);
  EXPECT_FALSE(manager.Receive(milliseconds(0)).has_value()) << "a second notice";
}

TEST_F(ModuleReboot, AfterAnUpdateThatFailed) {
  StartMicom({.troubles = {{.packet = 0, .fault = sim::LoaderFault::kRefuse}}});
  WriteImage(Payload(300));
  const auto notice = OrderUpdate(sim::kPatience);
  const double noticed = Uptime();
  ASSERT_TRUE(notice.has_value());
  EXPECT_EQ(sim::Hex(*notice), kNotice);
  EXPECT_EQ(Output(), Said(kAcknowledged + Failed("sync not match 15 vs 33")));
  ExpectRunsAfter(noticed);
}

}  // namespace
