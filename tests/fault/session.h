// Runs short sessions of the daemon in a private world on the virtual clock, with one failing call.
//
// A session starts the daemon, then runs rounds: a datagram and a command are relayed; a PTZ client
// connects, sends and receives; in the lens mode, positions are saved and focus and exposure are
// queried. Then the daemon idles and gets SIGTERM. After a transient failure, a second round must
// succeed completely.
#pragma once

#include <sys/sem.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "cmmap/param_block.h"
#include "ipc/csysmgr.h"
#include "lens/control.h"
#include "relay/daemon_datagram.h"
#include "sim/device_rig.h"
#include "sim/leftovers.h"
#include "sim/lens_micom.h"
#include "sim/virtual_time.h"
#include "sim/world.h"
#include "tests/fault/fault_plan.h"
#include "util/conf_file.h"

namespace fault {

struct Mode {
  std::string name;
  std::string model;
  CameraControl control;  // a command, and its frame on the line
  std::string frame;
  bool reboots = false;  // the session orders a firmware update, which ends in a reboot
};

// Kills a process after a delay in real time. Replaces an earlier request.
inline volatile pid_t g_victim;
inline volatile sig_atomic_t g_was_killed;
inline void KillAfter(long delay_us, pid_t pid) {
  constexpr long kUsPerS = 1'000'000;
  g_victim = pid;
  g_was_killed = 0;
  signal(SIGALRM, [](int) {
    g_was_killed = 1;
    syscall(SYS_kill, g_victim, SIGKILL);
  });
  const itimerval timer = {{}, {delay_us / kUsPerS, delay_us % kUsPerS}};
  setitimer(ITIMER_REAL, &timer, nullptr);
}

class Session : private sim::DeviceRig {
 public:
  explicit Session(const Mode& mode)
      : DeviceRig({.model = mode.model}), mode_(mode), data_(SERIAL_DATA_PORT) {
    std::filesystem::create_symlink(FAULT_LIBRARY_PATH, kLibrary);
    sim::WriteTextFile("/etc/killList", "no_such_program\n");
    sim::WriteTextFile("/etc/termList", "no_such_program\n");
    sim::WriteTextFile("/tmp/micom_firmware", std::string(600, 'F'));
    sim::WriteTextFile("/usr/bin/micom_reset",
                       std::string("#!/bin/sh\nls /proc/self/fd > ") + kProgramDescriptors + "\n");
    Collect(syslog_.Fd(), &logged_);
    Collect(data_.Fd(), &datagrams_);
  }

  // Returns the calls of a session without failures: only those before it serves, or only those
  // from an update on, where these are the subject of the test.
  std::vector<Call> Record(bool is_start) {
    Live({.call = {.name = "*"}});
    CheckEnd({});
    Note("without a failure", true);
    auto calls = ReadLog();
    if (is_start) calls.resize(until_serving_);
    if (mode_.reboots) calls = std::vector(calls.begin() + until_update_, calls.end());
    return calls;
  }

  // Runs a session in which `point` fails.
  void Run(const Point& point) {
    Live(point);
    CheckEnd(ReadLog().empty() ? Point() : point);
    Note(point.Name(), !ReadLog().empty());
  }

  // Starts the daemon, in the lens mode saves positions repeatedly, and kills it at `point`, or, if
  // `after_us` is not 0, after that much real time. Then checks that it starts again and serves,
  // whatever was left behind.
  void RunKilled(const Point& point, long after_us) {
    Start(point);
    if (camera) AwaitServing();
    if (after_us != 0) KillAfter(after_us, daemon->Pid());
    const auto save = [this, step = 1]() mutable {
      if (camera) Control(CAMERA_CODE_FOCUS, step = -step);
      if (camera) Control(CAMERA_CODE_FOCUS);
      return false;
    };
    Await(save, 60 * kPatience);
    const bool was_hit = daemon->WaitEnd({}) == -SIGKILL;
    // A child before its exec still holds these ports.
    const auto is_free = [](int port) { return !sim::IsPortBound("udp", port); };
    sim::WaitUntil([&] { return is_free(RS232_COMMAND_PORT) && is_free(config.udp_port); },
                   60 * kPatience);
    CheckFiles();
    std::filesystem::remove(CUTIL_TEMP_CONF_PATH);
    Spawn({});
    if (!AwaitServing()) Wrong("does not restart");
    must_serve_ = true;
    Round("1");
    CheckEnd({});
    Note(point.Name() + " after " + std::to_string(after_us) + " us", was_hit);
  }

  // Prints a summary. Returns the exit status. A failure that was not reached proves nothing, and
  // neither does a session without one.
  int Report(const char* what) const {
    printf("%s %s: %d tried, %d not reached, %d wrong\n", mode_.name.c_str(), what, tried_, missed_,
           failed_);
    return tried_ > 1 && missed_ == 0 && failed_ == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
  }

 private:
  using milliseconds = sim::milliseconds;

  static constexpr char kLibrary[] = "/dev/.world/libfault.so";
  // List of the descriptors that a device program inherits.
  static constexpr char kProgramDescriptors[] = "/dev/.world/descriptors";
  // Timeout of a step, and of a step after another has failed.
  static constexpr milliseconds kPatience{10'000};
  static constexpr milliseconds kShortPatience{500};
  static constexpr auto kNever = [] { return false; };

  // --- The daemon and its environment ----------------------------------------------------------

  // Appends everything read from `fd` to `text`.
  void Collect(int fd, std::string* text) {
    Watch(fd, [this, fd, text] {
      char bytes[1024];
      const ssize_t count = read(fd, bytes, sizeof(bytes));
      if (count > 0) text->append(bytes, static_cast<size_t>(count)).append("\n");
      if (count == 0) Unwatch(fd);
    });
  }

  bool Await(const std::function<bool()>& condition, milliseconds limit = kPatience) {
    bool is_true = false;
    sim::WaitUntil([&] { return (is_true = condition()) || HasEnded(); }, limit);
    return is_true;
  }

  // True once the daemon serves. A PTZ server that failed to start has printed an error.
  bool AwaitServing() {
    return Await([this] {
      return sim::IsPortBound("udp", RS232_COMMAND_PORT) &&
             (sim::IsPortBound("tcp", config.ptz_port) || Said("PTZ TCP CONNECTION ERR") > 0);
    });
  }

  std::string Said() const { return daemon->Output() + daemon->Errors() + logged_; }
  size_t Said(const char* text) const { return sim::CountOf(text, Said()); }

  void Spawn(const Point& point) {
    // Real time: a daemon that neither waits nor exits stops the virtual clock.
    constexpr long kLongestRunUs = 30'000'000;
    Launch(RS232D_PATH, {},
           {.preload = kLibrary, .variables = {FAULT_POINT + ("=" + point.Text())}});
    KillAfter(kLongestRunUs, daemon->Pid());
  }

  // Starts the daemon on a new device.
  void Start(const Point& point) {
    wrong_.clear();
    logged_.clear();
    for (const char* path : {FAULT_LOG, sim::kProgramLog, CUTIL_TEMP_CONF_PATH})
      std::filesystem::remove(path);
    Install();
    // Set the line as the daemon does: a killed daemon does not restore the settings.
    termios raw = {};
    cfmakeraw(&raw);
    tcsetattr(line.FarEnd(), TCSANOW, &raw);
    AttachModel();
    if (camera)
      sim::InstallLens({.zoom = 700, .focus = 590, .sensor = "IMX123", .antiflicker = "true"});
    far_end->on_noise = [this](std::span<const uint8_t> bytes) { seen_ += sim::Hex(bytes) + " "; };
    far_end->on_frame = far_end->on_noise;
    Spawn(point);
  }

  // --- Rounds ----------------------------------------------------------------------------------

  void Step(const char* what, const std::function<bool()>& condition) {
    if (Await(condition, patience_)) return;
    if (must_serve_) Wrong(std::string("not served: ") + what);
    patience_ = kShortPatience;
  }

  void StepLine(const char* what, const std::string& hex) {
    Step(what, [&] { return sim::CountOf(hex, seen_) > 0; });
  }

  void Round(const std::string& mark) {
    patience_ = kPatience;
    seen_.clear();
    datagrams_.clear();
    const sim::Bytes datagram = BytesOf("<U" + mark + ">");
    if (sim::IsPortBound("udp", config.udp_port)) {
      SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, datagram));
      StepLine("datagram", sim::Hex(datagram));
    }
    SendCommand(sim::CameraControlPacket(mode_.control));
    StepLine("command", mode_.frame);
    if (sim::IsPortBound("tcp", config.ptz_port)) RoundOfClient(mark);
    if (camera) RoundOfLens();
  }

  void RoundOfClient(const std::string& mark) {
    const sim::Bytes sent = BytesOf("<C" + mark + ">");
    const std::string answer = "<S" + mark + ">";
    std::string received;
    sim::PtzClient client(config.ptz_port);
    Collect(client.Fd(), &received);
    client.Send(sent);
    StepLine("bytes of a client", sim::Hex(sent));
    line.Send(BytesOf(answer));
    Step("bytes for a client", [&] { return sim::CountOf(answer, received) > 0; });
    if (!camera) Step("serial data", [&] { return sim::CountOf(answer, datagrams_) > 0; });
    Unwatch(client.Fd());
  }

  void StepControl(const char* text, uint16_t code, int first) {
    const size_t before = Said(text);
    Control(code, first);
    Step(text, [&] { return Said(text) > before; });
  }

  void RoundOfLens() {
    Control(CAMERA_CODE_FOCUS, 1);
    StepControl("--> saved", CAMERA_CODE_FOCUS, 0);
    StepControl("g_antiflk_enable=", CAMERA_CODE_AF_MODE, 0);
    auto* micom = static_cast<sim::LensMicom*>(far_end.get());
    camera->TakeFocusReadings();
    camera->TakeExposureReadings();
    micom->RequestFocusValues(true);
    Step("focus measure", [this] { return !camera->TakeFocusReadings().empty(); });
    micom->RequestFocusValues(false);
    Step("exposure", [this] { return !camera->TakeExposureReadings().empty(); });
    StepControl("g_antiflk_enable=", CAMERA_CODE_AF_MODE, LENS_AF_MODE_DAEMON);
  }

  void OrderUpdate(bool may_be_lost) {
    SendCommand(sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
    const auto reboots = [] {
      return sim::CountOf(" reboot", sim::ReadTextFile(sim::kProgramLog)) > 0;
    };
    // Packets may be retried, and the reboot includes pauses.
    if (!Await(reboots, 6 * kPatience) && !may_be_lost) Wrong("no reboot");
    // Its standard streams, and the directory that `ls` reads.
    const std::string descriptors = sim::ReadTextFile(kProgramDescriptors);
    if (descriptors != "0\n1\n2\n3\n" && !may_be_lost)
      Wrong("programs inherit descriptors: " + descriptors);
  }

  // After a transient failure, another round must succeed. An interrupted wait must have no effect
  // at all. The number of calls per round varies slightly, so the failure may occur only in a later
  // round.
  void Rounds(const Point& point) {
    const bool waits = point.call.name != "write" && point.call.name != "sendto";
    must_serve_ = point.IsNone() || (point.error == EINTR && waits);
    Round("1");
    bool was_hit = point.IsNone() || point.is_lasting || mode_.reboots;
    for (int round = 2; !was_hit && round <= 3; ++round) {
      Await([this] { return Said("line lost") == Said("line is back"); });
      was_hit = !ReadLog().empty();
      must_serve_ = was_hit && ReactionTo(point).course == Course::kServes;
      Round(std::to_string(round));
    }
  }

  void Live(const Point& point) {
    Start(point);
    if (!AwaitServing()) {
      if (!HasEnded()) Wrong("does not serve");
      return;
    }
    until_serving_ = ReadLog().size();
    Rounds(point);
    CheckIdle();
    until_update_ = std::ssize(ReadLog());
    // The order may get lost, or the device program may not run.
    if (mode_.reboots) OrderUpdate(point.is_lasting || point.call.subject == "/sbin/reboot");
    if (!HasEnded()) CheckDescriptors(point);
  }

  // --- Checks ----------------------------------------------------------------------------------

  void CheckIdle() {
    const uint64_t waits = sim::VirtualTime()->waits(daemon->Pid());
    const double cpu_seconds = daemon->CpuSeconds();
    Await(kNever, milliseconds(1000));
    if (HasEnded()) return;
    if (sim::VirtualTime()->waits(daemon->Pid()) - waits > 5000) Wrong("wakes up too often");
    if (daemon->CpuSeconds() - cpu_seconds > 0.2) Wrong("spins");
  }

  // Uses the minimum over some time, because the worker opens and closes query sockets. While waits
  // fail permanently, a disconnected client goes unnoticed.
  void CheckDescriptors(const Point& point) {
    size_t fewest = SIZE_MAX;
    const size_t most = point.IsNone() ? 0 : descriptors_ + (point.is_lasting ? 1 : 0);
    const auto are_few = [&] {
      fewest = std::min(fewest, sim::DescriptorCount(daemon->Pid()));
      return fewest <= most;
    };
    Await(are_few, kShortPatience);
    if (point.IsNone()) descriptors_ = fewest;
    if (!point.IsNone() && fewest > most) Wrong("leaks a descriptor");
  }

  void CheckFiles() {
    if (sim::IsParamFileLocked()) Wrong("leaves the parameter file locked");
    if (camera && !sim::ReadWholePositions().has_value())
      Wrong("leaves an incomplete positions file");
  }

  // Stops the daemon if it still runs, and checks how it ended.
  void CheckEnd(const Point& point) {
    const Reaction reaction = ReactionTo(point);
    const bool has_ended = HasEnded();
    daemon->Signal(mode_.reboots ? SIGKILL : SIGTERM);
    Await(kNever);
    const auto status = daemon->WaitEnd({});
    const int usual = has_ended ? reaction.status : mode_.reboots ? -SIGKILL : 0;
    if (!has_ended && reaction.course == Course::kEnds) Wrong("does not exit after the failure");
    if (g_was_killed != 0) Wrong("hangs");
    if (has_ended && reaction.course < Course::kMayEnd) Wrong("exits by itself");
    if (!status.has_value()) Wrong("does not exit at SIGTERM");
    if (status.value_or(usual) != usual) Wrong("exits with status " + std::to_string(*status));
    if (Said("Sanitizer") + Said("runtime error:") > 0) Wrong("a sanitizer reported an error");
    const int set = semget(PARAM_BLOCK_KEY, 1, 0);
    if (set >= 0 && semctl(set, 0, GETVAL) != 1) Wrong("leaves the semaphore locked");
    semctl(set, 0, IPC_RMID);
    CheckFiles();
  }

  static sim::Bytes BytesOf(const std::string& text) { return {text.begin(), text.end()}; }
  void Wrong(const std::string& what) { wrong_ += "  " + what + "\n"; }

  void Note(const std::string& name, bool was_hit) {
    ++tried_;
    if (!was_hit) ++missed_;
    if (!wrong_.empty()) ++failed_;
    if (was_hit && wrong_.empty()) return;
    printf("%s\n%s%s  output:\n%s\n", name.c_str(), was_hit ? "" : "  not reached\n",
           wrong_.c_str(), Said().c_str());
    fflush(stdout);
  }

  const Mode& mode_;
  sim::SyslogRecorder syslog_;
  sim::UdpPeer data_;
  sim::UdpPeer manager_{CSYSMGR_PORT};
  std::string seen_;          // bytes from the daemon on the line, in hexadecimal
  std::string logged_;        // syslog messages
  std::string datagrams_;     // serial data
  std::string wrong_;         // faults of the current session, one per line
  bool must_serve_ = true;    // a failed step is a fault
  milliseconds patience_{};   // timeout of a step
  size_t descriptors_ = 0;    // in a session without failures
  size_t until_serving_ = 0;  // number of its calls before it served, and before an update
  std::ptrdiff_t until_update_ = 0;
  int tried_ = 0;
  int missed_ = 0;
  int failed_ = 0;
};

}  // namespace fault
