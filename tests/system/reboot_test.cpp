// What follows an update, of a module or a lens: the notice, the pause, the reboot in its order.
#include <csignal>
#include <filesystem>
#include <sstream>

#include "ipc/csysmgr.h"
#include "sim/world.h"
#include "tests/system/ctl_fixture.h"
#include "tests/system/lens_fixture.h"
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

class ModuleReboot : public UpdateTest {
 protected:
  void SetUp() override {
    UpdateTest::SetUp();
    unlink(sim::kProgramLog);
  }
};

// A process of the device. Its number is the first free one from `number` on.
struct Victim {
  Victim(const std::string& name, pid_t number) : path(sim::kWorldDirectory + ("/" + name)) {
    std::filesystem::remove(path);
    std::filesystem::create_symlink("/bin/sleep", path);
    sim::WriteTextFile("/proc/sys/kernel/ns_last_pid", std::to_string(number - 1));
    process = std::make_unique<sim::DaemonProcess>(path, std::vector<std::string>{"60"});
  }

  std::string path;
  std::unique_ptr<sim::DaemonProcess> process;
};

TEST_F(ModuleReboot, AfterAnUpdate) {
  constexpr pid_t kOfTheSystem = 15;
  Victim low("killed_low", kOfTheSystem);
  Victim killed("killed", 100);
  Victim ended("ended", 120);
  sim::WriteTextFile("/etc/killList", low.path + "\n" + killed.path + "\n");
  sim::WriteTextFile("/etc/termList", killed.path + "\n" + ended.path + "\n");
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
  EXPECT_EQ(killed.process->WaitEnd(), -SIGKILL);
  EXPECT_GE(Uptime() - reset, 2 - kLogStep);
  EXPECT_EQ(ended.process->WaitEnd(), -SIGTERM);
  const double termed = Uptime();
  ExpectRunsAfter(noticed);
  EXPECT_GE(ProgramRuns()[1].uptime - termed, 1 - 0.1);
  EXPECT_TRUE(low.process->Pid() != kOfTheSystem || !low.process->WaitEnd(milliseconds(0)));
  // Then it waits for the system to end it, and costs nothing.
  EXPECT_FALSE(daemon->WaitEnd(milliseconds(300)).has_value());
  EXPECT_LT(daemon->CpuSeconds() - cpu_before, 0.3);
  EXPECT_FALSE(manager.Receive(milliseconds(0)).has_value()) << "a second notice";
  daemon->Signal(SIGTERM);
  ExpectEnd(-SIGTERM);
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

using LensReboot = LensTest;

TEST_F(LensReboot, FirmwareCommandEndsTheDevice) {
  unlink(sim::kProgramLog);
  sim::UdpPeer manager(CSYSMGR_PORT);
  StartLens({.zoom = 0, .focus = 200});
  const double ordered = Uptime();
  sim::WriteTextFile("/etc/new_firmware", std::string(164, 'x'));
  const CtlResult order = RunCtl("firmware-update --yes /etc/new_firmware");
  EXPECT_EQ(order.output, "ordered to lay out 100 bytes of firmware and reboot this QB-420\n");
  const auto notice = manager.Receive();
  ASSERT_TRUE(notice.has_value());
  EXPECT_EQ(sim::Hex(*notice), kNotice);
  ASSERT_TRUE(WaitOutput("CICOMM_PCMD_MICOM_FIRMWARE_UPDATE\n"));
  ExpectRunsAfter(ordered);
  daemon->Signal(SIGTERM);
  ExpectEnd(-SIGTERM);
}

}  // namespace
