#include "tests/fault/session.h"

#include <poll.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "cmmap/param_block.h"
#include "ipc/cicomm.h"
#include "ipc/csysmgr.h"
#include "lens/control.h"
#include "lens/i2m.h"
#include "lens/piris.h"
#include "lens/position.h"
#include "module/hd_frame.h"
#include "relay/daemon_datagram.h"
#include "relay/pelco_d.h"
#include "sim/far_end_models.h"
#include "sim/leftovers.h"
#include "sim/lens_micom.h"
#include "sim/world.h"
#include "util/conf_file.h"

namespace fault {
namespace {

using sim::milliseconds;

constexpr char kLog[] = "/dev/.world/calls.log";
// Descriptors of a device program that the daemon runs.
constexpr char kProgramDescriptors[] = "/dev/.world/descriptors";
constexpr char kUpdateImage[] = "/tmp/micom_firmware";
constexpr size_t kUpdateSize = 600;

// What a step may take in a session without a failure, and while one is at work.
constexpr milliseconds kPatience{10000};
constexpr milliseconds kShortPatience{150};
// What an update and the pauses of the reboot take at the daemon's speed.
constexpr milliseconds kRebootTime{3000};
// For how long an idle daemon is watched.
constexpr milliseconds kIdle{50};

template <typename Frame>
sim::Bytes BytesOf(const Frame& frame) {
  return sim::Bytes(frame.begin(), frame.end());
}

// Time that the threads of a process have had or wanted on a processor, milliseconds.
double BusyMs(pid_t pid) {
  double busy_ms = 0;
  std::error_code gone;
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks, gone)) {
    std::ifstream file(task.path() / "schedstat");
    double run_ns = 0;
    double wait_ns = 0;
    file >> run_ns >> wait_ns;
    busy_ms += (run_ns + wait_ns) / 1e6;
  }
  return busy_ms;
}

bool IsSanitizerReport(const std::string& text) {
  constexpr std::array kMarks = {"Sanitizer", "runtime error:", "stack smashing", "corrupt"};
  return std::ranges::any_of(
      kMarks, [&](const char* mark) { return text.find(mark) != std::string::npos; });
}

// Whether the order may not arrive, the device program may not run, or the answers to a packet not
// arrive: it is then sent so often that the reboot comes minutes later.
bool MayLoseReboot(const Point& point) {
  constexpr std::array kOfOrder = {"poll",   "ppoll",  "read", "recvfrom",
                                   "select", "system", "write"};
  return (point.IsLasting() && std::ranges::find(kOfOrder, point.call.name) != kOfOrder.end()) ||
         point.call.subject == "/sbin/reboot";
}

}  // namespace

const std::vector<Mode>& Modes() {
  const CameraControl zoom = sim::Control(CAMERA_CODE_ZOOM, 0, 0, 1);
  const sim::Bytes tele =
      BytesOf(PelcoBuild({.command1 = 0, .command2 = PELCO2_ZOOM_TELE, .data1 = 0, .data2 = 0}));
  const sim::Bytes hd_tele = BytesOf(HdBuild(HD_LENS, HD_SETTING, HD_LENS_TELE));
  const sim::Bytes iris = BytesOf(I2mBuild(I2M_WRITE, I2M_ADDR_PIRIS_STEP, 0, PIRIS_STEP));
  static const std::vector<Mode> modes = {
      {"relay", "QB-100", 10, zoom, tele, false},
      {"sd", "QB-210", 10, zoom, tele, false},
      {"hd", "QB-310", 10, zoom, hd_tele, false},
      {"update", "QB-310", 20, zoom, hd_tele, true},
      {"lens", "QB-420", 20, sim::Control(CAMERA_CODE_IRIS_STEP, 1), iris, false},
  };
  return modes;
}

Session::Session(const Mode& mode, std::string daemon, std::string library)
    : mode_(mode),
      daemon_path_(std::move(daemon)),
      library_(std::move(library)),
      data_(SERIAL_DATA_PORT),
      manager_(CSYSMGR_PORT) {
  config_.model = mode.model;
  sim::WriteTextFile("/etc/killList", "no_such_program\n");
  sim::WriteTextFile("/etc/termList", "no_such_program\n");
  sim::WriteTextFile(kUpdateImage, std::string(kUpdateSize, 'F'));
  sim::WriteTextFile("/usr/bin/micom_reset",
                     std::string("#!/bin/sh\nls /proc/self/fd > ") + kProgramDescriptors + "\n");
}

// --- The daemon and what is around it ----------------------------------------------------------

void Session::Launch(const Point* point, bool record) {
  wrong_.clear();
  logged_.clear();
  seen_.clear();
  was_hit_ = false;
  std::filesystem::remove(kLog);
  std::filesystem::remove(sim::kProgramLog);
  std::filesystem::remove(CUTIL_TEMP_CONF_PATH);
  sim::InstallDevice(config_);
  sim::InstallModelFiles(mode_.model);
  if (std::string_view(mode_.name) == "lens") {
    sim::InstallLens({.zoom = 700, .focus = 590, .sensor = "IMX123", .antiflicker = "true"});
  }
  camera_.reset();
  far_end_ = sim::MakeFarEnd(mode_.model, line_, sim::Clock::now());
  far_end_->on_answer = [this](std::span<const uint8_t> bytes) { line_.Send(bytes); };
  camera_ = sim::MakeCamera(mode_.model, *far_end_);
  Pump();
  seen_.clear();

  Spawn(point, record);
}

void Session::Spawn(const Point* point, bool record) {
  // Without it a sanitizer's runtime insists on being the first library.
  setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
  setenv("LD_PRELOAD", library_.c_str(), 1);
  setenv(FAULT_LOG, kLog, 1);
  setenv(FAULT_SPEED, std::to_string(mode_.speed).c_str(), 1);
  if (record) setenv(FAULT_RECORD, "1", 1);
  if (point != nullptr) setenv(FAULT_POINT, point->Text().c_str(), 1);
  daemon_ = std::make_unique<sim::DaemonProcess>(daemon_path_, std::vector<std::string>{});
  for (const char* name : {"LD_PRELOAD", FAULT_LOG, FAULT_SPEED, FAULT_RECORD, FAULT_POINT})
    unsetenv(name);
}

std::vector<Call> Session::Log() const {
  return ParseLog(sim::ReadTextFile(kLog));
}

// Lets everything around the daemon go on.
void Session::Pump() {
  pollfd source = {.fd = line_.FarEnd(), .events = POLLIN, .revents = 0};
  poll(&source, 1, 1);
  const auto now = sim::Clock::now();
  std::array<uint8_t, 4096> bytes;
  const ssize_t count = read(line_.FarEnd(), bytes.data(), bytes.size());
  if (count > 0) {
    const std::span<const uint8_t> came(bytes.data(), static_cast<size_t>(count));
    seen_.insert(seen_.end(), came.begin(), came.end());
    far_end_->Feed(came, now);
  }
  far_end_->Tick(now);
  if (camera_ != nullptr) camera_->Serve(now);
  // Syslog would make the daemon wait once nobody reads it.
  char message[1024];
  ssize_t length = 0;
  while ((length = recv(syslog_.Fd(), message, sizeof(message), MSG_DONTWAIT)) > 0)
    logged_.append(message, static_cast<size_t>(length)).append("\n");
}

bool Session::Await(const std::function<bool()>& condition, milliseconds limit) {
  const auto end = sim::Clock::now() + limit;
  while (!condition()) {
    if (HasEnded() || sim::Clock::now() >= end) return condition();
    Pump();
  }
  return true;
}

bool Session::HasEnded() {
  return daemon_->WaitEnd(milliseconds(0)).has_value();
}

bool Session::Seen(std::span<const uint8_t> bytes) const {
  return std::search(seen_.begin(), seen_.end(), bytes.begin(), bytes.end()) != seen_.end();
}

std::string Session::Said() {
  Pump();
  return daemon_->Output() + daemon_->Errors() + logged_;
}

// --- Rounds ------------------------------------------------------------------------------------

bool Session::AwaitServing() {
  return Await(
             [this] {
               return sim::IsPortBound("udp", RS232_COMMAND_PORT) &&
                      (sim::IsPortBound("tcp", config_.ptz_port) ||
                       Said().find("PTZ TCP CONNECTION ERR") != std::string::npos);
             },
             kPatience) &&
         !HasEnded();
}

void Session::Step(const char* what, const std::function<bool()>& condition) {
  if (HasEnded()) return;
  const bool done = Await(condition, limit_);
  if (!done) limit_ = std::min(limit_, must_serve_ ? limit_ : kShortPatience);
  if (!done && must_serve_) Wrong(std::string("not served: ") + what);
}

void Session::RoundOfClient(const std::string& mark) {
  // A server that could not be had has said so.
  if (!sim::IsPortBound("tcp", config_.ptz_port)) return;
  const std::string sent = "<C" + mark + ">";
  const std::string answer = "<S" + mark + ">";
  sim::PtzClient client(config_.ptz_port);
  client.Send(BytesOf(sent));
  Step("bytes of a client", [&] { return Seen(BytesOf(sent)); });
  line_.Send(BytesOf(answer));
  std::string received;
  std::string data;
  const auto take = [](int fd, std::string* text) {
    char bytes[256];
    const ssize_t count = recv(fd, bytes, sizeof(bytes), MSG_DONTWAIT);
    if (count > 0) text->append(bytes, static_cast<size_t>(count));
  };
  Step("bytes for a client", [&] {
    take(client.Fd(), &received);
    return received.find(answer) != std::string::npos;
  });
  if (camera_ != nullptr) return;
  Step("serial data datagram", [&] {
    take(data_.Fd(), &data);
    return data.find(answer) != std::string::npos;
  });
}

size_t Session::CountInOutput(const std::string& text) const {
  return sim::CountOf(text, daemon_->Output() + daemon_->Errors());
}

void Session::SendControl(const CameraControl& control) {
  sender_.SendTo(RS232_COMMAND_PORT, sim::CameraControlPacket(control));
}

void Session::RoundOfLens() {
  auto* micom = static_cast<sim::LensMicom*>(far_end_.get());
  const size_t saved = CountInOutput("--> saved");
  SendControl(sim::Control(CAMERA_CODE_FOCUS, 1));
  SendControl(sim::Control(CAMERA_CODE_FOCUS));
  Step("positions", [&] { return CountInOutput("--> saved") > saved; });
  const size_t modes = CountInOutput("g_antiflk_enable=");
  SendControl(sim::Control(CAMERA_CODE_AF_MODE));
  Step("autofocus by the micom", [&] { return CountInOutput("g_antiflk_enable=") > modes; });
  camera_->TakeFocusReadings();
  camera_->TakeExposureReadings();
  micom->RequestFocusValues(true);
  Step("focus measure", [&] { return !camera_->TakeFocusReadings().empty(); });
  micom->RequestFocusValues(false);
  Step("exposure", [&] { return !camera_->TakeExposureReadings().empty(); });
  SendControl(sim::Control(CAMERA_CODE_AF_MODE, LENS_AF_MODE_DAEMON));
  Step("autofocus by the daemon", [&] { return CountInOutput("g_antiflk_enable=") > modes + 1; });
}

void Session::Round(int number, milliseconds limit) {
  limit_ = limit;
  const std::string mark = std::to_string(number);
  const sim::Bytes datagram = BytesOf("<U" + mark + ">");
  if (sim::IsPortBound("udp", config_.udp_port)) {
    sender_.SendTo(config_.udp_port, sim::DaemonDatagram(RS232_UDP_WRITE, datagram));
    Step("datagram", [&] { return Seen(datagram); });
  }
  if (HasEnded()) return;
  seen_.clear();
  SendControl(mode_.control);
  Step("command", [&] { return Seen(mode_.frame); });
  if (HasEnded()) return;
  RoundOfClient(mark);
  if (camera_ != nullptr && !HasEnded()) RoundOfLens();
}

void Session::OrderUpdate(const Point* point) {
  sender_.SendTo(RS232_COMMAND_PORT, sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
  const auto has_rebooted = [] {
    return sim::ReadTextFile(sim::kProgramLog).find(" reboot") != std::string::npos;
  };
  const bool may_fail = point != nullptr && MayLoseReboot(*point);
  if (!Await(has_rebooted, may_fail ? kRebootTime : kPatience) && !may_fail) Wrong("no reboot");
  // Its standard streams, and the directory that it reads.
  const std::string descriptors = sim::ReadTextFile(kProgramDescriptors);
  if (!may_fail && descriptors != "0\n1\n2\n3\n")
    Wrong("programs inherit descriptors: " + descriptors);
}

// --- What has to hold --------------------------------------------------------------------------

void Session::CheckIdle() {
  if (HasEnded()) return;
  const auto start = sim::Clock::now();
  const double before = BusyMs(daemon_->Pid());
  Await([&] { return sim::Clock::now() - start >= kIdle; }, kPatience);
  const std::chrono::duration<double, std::milli> taken = sim::Clock::now() - start;
  const double busy = BusyMs(daemon_->Pid()) - before;
  if (busy > 0.6 * taken.count()) {
    Wrong("spins: busy for " + std::to_string(busy) + " of " + std::to_string(taken.count()) +
          " ms");
  }
}

// While waits fail for good a client that has left is not noticed.
void Session::CheckDescriptors(const Point* point) {
  if (HasEnded()) return;
  if (point == nullptr) {
    // The fewest over some time: the worker's questions come and go.
    healthy_descriptors_ = SIZE_MAX;
    for (int look = 0; look < 20; ++look) {
      Pump();
      healthy_descriptors_ = std::min(healthy_descriptors_, sim::DescriptorCount(daemon_->Pid()));
    }
    return;
  }
  const size_t most = healthy_descriptors_ + (point->IsLasting() ? 1 : 0);
  if (!Await([&] { return sim::DescriptorCount(daemon_->Pid()) <= most; }, kPatience)) {
    Wrong("leaks: " + std::to_string(sim::DescriptorCount(daemon_->Pid())) + " descriptors, not " +
          std::to_string(healthy_descriptors_));
  }
}

void Session::CheckFiles() {
  if (sim::IsParamFileLocked()) Wrong("the parameter file is left locked");
  if (camera_ != nullptr && !sim::ReadWholePositions().has_value()) {
    Wrong("the positions file is not whole: " + sim::ReadTextFile(MFZ_CONF_PATH));
  }
}

void Session::CheckLeftovers() {
  const int set = semget(PARAM_BLOCK_KEY, 1, 0);
  if (set >= 0) {
    if (semctl(set, 0, GETVAL) != 1) Wrong("the semaphore is left taken");
    semctl(set, 0, IPC_RMID);
  }
  CheckFiles();
}

void Session::Judge(const Point& point) {
  const auto reaction = ReactionTo(point);
  const Course course = reaction.has_value() ? reaction->course : Course::kServes;
  const auto status = daemon_->WaitEnd(milliseconds(0));
  if (status.has_value()) {
    const bool may_end = course >= Course::kMayEnd || MayEndLater(point, *status);
    if (!may_end) Wrong("ends by itself");
  } else if (course == Course::kEnds) {
    Wrong("goes on");
  }
  if (reaction.has_value() &&
      !Await([&] { return Said().find(reaction->text) != std::string::npos; }, kShortPatience)) {
    Wrong("does not say: " + reaction->text);
  }
}

void Session::End() {
  if (mode_.reboots && !HasEnded()) {
    daemon_->Signal(SIGKILL);
    daemon_->WaitEnd();
    return;
  }
  daemon_->Signal(SIGTERM);
  Await([] { return false; }, kPatience);
}

void Session::StartAndServe(const Point* point, bool record) {
  Launch(point, record);
  const bool serves = AwaitServing();
  if (!serves) {
    if (!HasEnded()) Wrong("does not serve");
    return;
  }
  must_serve_ = point == nullptr;
  Round(1, must_serve_ ? kPatience : milliseconds(2000));
  if (point != nullptr && !point->IsLasting() && !mode_.reboots) {
    const auto reaction = ReactionTo(*point);
    // A line that was lost comes back.
    Await([this] { return CountInOutput("line lost") == CountInOutput("line is back"); },
          kPatience);
    const bool serves_again = !reaction.has_value() || reaction->course == Course::kServes;
    // Rounds differ by a call or two: the failure may come only in the second.
    for (const int round : {2, 3}) {
      const bool was_hit = std::ranges::any_of(Log(), &Call::failed);
      must_serve_ = was_hit && serves_again;
      Round(round, kPatience);
      if (was_hit) break;
    }
  }
  CheckIdle();
  calls_before_update_ = Log().size();
  if (mode_.reboots && !HasEnded()) OrderUpdate(point);
}

std::string Session::Run(const Point* point) {
  StartAndServe(point, false);
  CheckDescriptors(point);
  const auto calls = Log();
  was_hit_ = std::ranges::any_of(calls, &Call::failed);
  int status = 0;
  if (point != nullptr && was_hit_) {
    Point hit = *point;
    hit.call.subject = calls.front().subject;
    Judge(hit);
    const auto reaction = ReactionTo(hit);
    if (reaction.has_value() && reaction->course == Course::kEnds) {
      status = reaction->status;
    }
  }
  End();
  was_hit_ = was_hit_ || std::ranges::any_of(Log(), &Call::failed);
  const auto ended = daemon_->WaitEnd(milliseconds(0));
  if (mode_.reboots && ended == -SIGKILL) {
  } else if (!ended.has_value()) {
    Wrong("does not end at SIGTERM");
  } else if (*ended != status && (point == nullptr || !MayEndLater(*point, *ended))) {
    Wrong("ends with status " + std::to_string(*ended));
  }
  if (IsSanitizerReport(Said())) Wrong(daemon_->Errors());
  CheckLeftovers();
  if (!wrong_.empty()) {
    wrong_ += "  it said:\n" + Said().substr(0, 600) + "\n";
  }
  return wrong_;
}

std::vector<Call> Session::Record() {
  StartAndServe(nullptr, true);
  End();
  if (!wrong_.empty()) throw std::runtime_error("session without a failure:\n" + wrong_ + Said());
  auto calls = Log();
  // What comes before an update is that of the mode without one.
  if (mode_.reboots) {
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(calls_before_update_));
  }
  return calls;
}

std::vector<Call> Session::RecordStart() {
  Launch(nullptr, true);
  if (!AwaitServing()) throw std::runtime_error("no start without a failure:\n" + Said());
  auto calls = Log();
  End();
  return calls;
}

// --- Sudden ends -------------------------------------------------------------------------------

// Waits for a kill by the library, or kills after `delay`. Returns false when it did not come.
bool Session::AwaitKilled(std::chrono::microseconds delay) {
  if (delay.count() > 0) {
    std::this_thread::sleep_for(delay);
    daemon_->Signal(SIGKILL);
  }
  Await([] { return false; }, kPatience);
  return daemon_->WaitEnd(milliseconds(0)) == -SIGKILL;
}

void Session::StartAgain() {
  Spawn(nullptr, false);
  if (!AwaitServing()) Wrong("does not start again");
  must_serve_ = true;
  limit_ = kPatience;
  const sim::Bytes datagram = BytesOf(std::string("<again>"));
  sender_.SendTo(config_.udp_port, sim::DaemonDatagram(RS232_UDP_WRITE, datagram));
  Step("datagram after a kill", [&] { return Seen(datagram); });
  End();
  if (daemon_->WaitEnd(milliseconds(0)) != 0) Wrong("the next start does not end well");
  CheckLeftovers();
}

std::string Session::RunKilledStart(const Point* point, std::chrono::microseconds delay) {
  Launch(point, false);
  was_hit_ = AwaitKilled(delay);
  CheckFiles();
  StartAgain();
  return wrong_;
}

std::string Session::RunKilledSave(const Point* point, std::chrono::microseconds delay) {
  Launch(point, false);
  const sim::Bytes ready = BytesOf(std::string("<ready>"));
  if (AwaitServing()) {
    sender_.SendTo(config_.udp_port, sim::DaemonDatagram(RS232_UDP_WRITE, ready));
    Await([&] { return Seen(ready); }, kPatience);
  }
  constexpr int kSaves = 10;
  for (int i = 0; i < kSaves && !HasEnded(); ++i) {
    SendControl(sim::Control(CAMERA_CODE_FOCUS, i % 2 == 0 ? 1 : -1));
    SendControl(sim::Control(CAMERA_CODE_FOCUS));
  }
  was_hit_ = AwaitKilled(delay);
  CheckFiles();
  std::filesystem::remove(CUTIL_TEMP_CONF_PATH);
  StartAgain();
  return wrong_;
}

}  // namespace fault
