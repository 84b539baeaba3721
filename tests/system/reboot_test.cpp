// The steps after a firmware command for a module or a lens: notice, pause, reboot.
#include <csignal>
#include <filesystem>
#include <sstream>

#include "ipc/csysmgr.h"
#include "sim/world.h"
#include "tests/system/ctl_fixture.h"
#include "tests/system/lens_fixture.h"
#include "tests/system/module_fixture.h"
#include "util/process.h"

namespace {

using sim::milliseconds;

// The log truncates times to hundredths of a second.
constexpr double kLogStep = 0.02;
constexpr char kNotice[] = "53 59 53 50 00 00 00 00 54 42 45 52";

// Waits for `count` runs of device programs. Returns the time and command line of each.
std::vector<std::pair<double, std::string>> ProgramRuns(size_t count) {
  std::vector<std::pair<double, std::string>> runs;
  EXPECT_TRUE(sim::WaitUntil(
      [&] {
        runs.clear();
        std::istringstream log(sim::ReadTextFile(sim::kProgramLog));
        std::string program;
        for (double time = 0; log >> time && std::getline(log >> std::ws, program);)
          runs.emplace_back(time, program);
        return runs.size() >= count;
      },
      milliseconds(20'000)));
  return runs;
}

double Uptime() {
  return std::stod(sim::ReadTextFile("/proc/uptime"));
}

void ExpectRunsAfter(double noticed) {
  const std::tuple<const char*, double, double> rows[] = {
      // seconds since the previous run
      {"micom_reset", 10, 11.5},
      {"umount /mnt/sd/", 3, 4.5},
      {"umount /mnt/usb/", 0, 1},
      {"reboot", 0, 1},
  };
  const auto runs = ProgramRuns(std::size(rows));
  ASSERT_EQ(runs.size(), std::size(rows));
  double before = noticed;
  for (size_t i = 0; i < runs.size(); before = runs[i++].first) {
    const auto& [program, least, most] = rows[i];
    EXPECT_TRUE(runs[i].second.starts_with(program)) << runs[i].second;
    EXPECT_GE(runs[i].first - before, least - kLogStep) << program;
    EXPECT_LE(runs[i].first - before, most) << program;
  }
}

// Makes the reset program log its inherited signal state and descriptors. Returns the expected log:
// the signal state of a process started by a test, and no descriptors but the standard streams and
// that of `ls`.
constexpr char kInherited[] = "/tmp/inherited";

std::string WatchInheritance() {
  sim::WriteTextFile("/bin/micom_reset",
                     std::string("#!/bin/sh\nread up idle < /proc/uptime\n") +
                         "echo $up micom_reset >> " + sim::kProgramLog + "\n" +
                         "(grep -E 'Sig(Blk|Ign)' /proc/self/status; ls /proc/self/fd) > " +
                         kInherited + "\n");
  sim::DaemonProcess reset("/bin/micom_reset", {});
  EXPECT_EQ(reset.WaitEnd(), 0);
  unlink(sim::kProgramLog);
  const std::string inherited = sim::ReadTextFile(kInherited);
  return inherited.substr(0, inherited.find("\n0\n") + 1) + "0\n1\n2\n3\n";
}

// Real time, because the log of the runs and the pauses between them use /proc/uptime.
class RealTimeModuleReboot : public UpdateTest {};

// A process of the device with the first free pid from `number` on.
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

TEST_F(RealTimeModuleReboot, FollowsAFailedUpdate) {
  const std::string inherited = WatchInheritance();
  const Victim low("killed_low", CUTIL_FIRST_KILLED_PID - 1);
  const Victim killed("killed", CUTIL_FIRST_KILLED_PID);
  ASSERT_EQ(killed.process->Pid() - low.process->Pid(), 1);
  Victim ended("ended", 120);
  sim::WriteTextFile("/etc/killList", low.path + "\n" + killed.path + "\n");
  sim::WriteTextFile("/etc/termList", killed.path + "\n" + ended.path + "\n");
  StartMicom({.troubles = {{.packet = 0, .fault = sim::LoaderFault::kRefuse}}});
  const sim::PtzClient client(config.ptz_port);
  WriteImage(Payload(300));
  EXPECT_EQ(sim::Hex(OrderUpdate(sim::kPatience).value_or(sim::Bytes())), kNotice);
  const double noticed = Uptime();
  // Neither a signal nor a stop datagram ends the pause.
  daemon->Signal(SIGTERM);
  SendUdp(sim::DaemonDatagram(RS232_UDP_STOP));
  const double cpu_before = daemon->CpuSeconds();

  const double reset = ProgramRuns(1).at(0).first;
  EXPECT_EQ(killed.process->WaitEnd(), -SIGKILL);
  EXPECT_GE(Uptime() - reset, 2 - kLogStep);
  EXPECT_EQ(ended.process->WaitEnd(), -SIGTERM);
  const double termed = Uptime();
  ExpectRunsAfter(noticed);
  EXPECT_GE(ProgramRuns(2)[1].first - termed, 1 - 0.5);  // the exit may be noticed late
  EXPECT_EQ(sim::ReadTextFile(kInherited), inherited);
  EXPECT_FALSE(low.process->WaitEnd(milliseconds(0)).has_value());
  // Then it waits to be killed, without using the processor.
  EXPECT_FALSE(daemon->WaitEnd(milliseconds(300)).has_value());
  EXPECT_LT(daemon->CpuSeconds() - cpu_before, 0.3);
  EXPECT_FALSE(manager.Receive(milliseconds(0)).has_value()) << "a second notice";
  daemon->Signal(SIGTERM);
  ExpectEnd(-SIGTERM);
}

// Real time, as above.
class RealTimeLensReboot : public LensTest {};

TEST_F(RealTimeLensReboot, FirmwareCommandRebootsTheDevice) {
  const std::string inherited = WatchInheritance();
  sim::UdpPeer manager(CSYSMGR_PORT);
  StartLens({.zoom = 0, .focus = 200});
  const double ordered = Uptime();
  sim::WriteTextFile("/etc/new_firmware", std::string(164, 'x'));
  const CtlResult order = RunCtl("firmware-update --yes --force /etc/new_firmware");
  EXPECT_EQ(
      order.output,
      "sent the command to reboot this QB-420 with 100 bytes of firmware in /tmp/micom_firmware\n");
  EXPECT_EQ(sim::Hex(manager.Receive().value_or(sim::Bytes())), kNotice);
  ExpectRunsAfter(ordered);
  EXPECT_EQ(sim::ReadTextFile(kInherited), inherited);
  daemon->Signal(SIGTERM);
  ExpectEnd(-SIGTERM);
}

}  // namespace
