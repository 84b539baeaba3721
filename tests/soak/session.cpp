#include "tests/soak/session.h"

#include <algorithm>
#include <csignal>

#include "ipc/cicomm.h"
#include "relay/daemon_datagram.h"
#include "sim/far_end_models.h"
#include "sim/leftovers.h"

namespace soak {
namespace {

using sim::Clock;
using sim::milliseconds;

constexpr int kShortLifeMin = 4'000;
constexpr int kShortLifeMax = 15'000;
constexpr int kLongLifeMax = 240'000;
constexpr int kLongEvery = 3;  // lives
constexpr milliseconds kFirstMinute{60'000};
constexpr milliseconds kIdle{300};

constexpr int kJumpMin = 300;
constexpr int kJumpMax = 6'000;
constexpr int kHours12 = 12 * 3600;

milliseconds Half(Clock::duration time) {
  return std::chrono::duration_cast<milliseconds>(time) / 2;
}

bool IsSame(const termios& a, const termios& b) {
  return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
         a.c_lflag == b.c_lflag && std::ranges::equal(a.c_cc, b.c_cc) &&
         cfgetospeed(&a) == cfgetospeed(&b);
}

}  // namespace

Session::Session(const Mode& mode, uint32_t seed, std::string daemon, std::string library,
                 Counters* counters)
    : mode_(mode),
      daemon_path_(std::move(daemon)),
      report_(mode.name, seed, counters),
      shim_(std::move(library)),
      traffic_(mode, seed, &report_, &shim_),
      watches_(&report_) {
  sim::InstallDevice(traffic_.Config());
  sim::InstallModelFiles(mode.model);
}

// --- Time passes ---------------------------------------------------------------------------------

void Session::Tick() {
  traffic_.Pump();
  WatchStopped();
  if (Clock::now() >= next_jump_) {
    shim_.SetClock(std::chrono::seconds(traffic_.Roll(-kHours12, kHours12)));
    next_jump_ = Clock::now() + milliseconds(traffic_.Roll(kJumpMin, kJumpMax));
    ++report_.Count().clock_jumps;
  }
  if (is_ending_ || is_lost_ || daemon_ == nullptr || !HasEnded()) return;
  is_lost_ = true;
  report_.Violation("daemon", "that it goes on",
                    "status " + std::to_string(*daemon_->WaitEnd()) + ", " + daemon_->Errors());
}

// Returns whether the condition came about.
bool Session::Await(const Condition& condition, milliseconds limit) {
  const auto end = Clock::now() + limit;
  while (!condition()) {
    if (is_lost_ || Clock::now() >= end) return condition();
    Tick();
  }
  return true;
}

void Session::Pass(int low_ms, int high_ms) {
  Await([] { return false; }, milliseconds(traffic_.Roll(low_ms, high_ms)));
}

size_t Session::CountInOutput(const std::string& text) const {
  return sim::CountOf(text, daemon_->Output() + daemon_->Errors());
}

bool Session::AwaitInOutput(const std::string& text, size_t count, milliseconds limit) {
  constexpr milliseconds kLookEvery{20};
  Time next_look;
  return Await(
      [&] {
        if (Clock::now() < next_look) return false;
        next_look = Clock::now() + kLookEvery;
        return CountInOutput(text) >= count;
      },
      limit);
}

// --- Lives ---------------------------------------------------------------------------------------

void Session::Start() {
  line_before_ = traffic_.LineSettings();
  traffic_.SetStarting(true);
  traffic_.ForgetUnseen();
  daemon_ = shim_.Launch(daemon_path_);
  is_ending_ = false;
  const bool is_up = Await(
      [this] {
        return sim::IsPortBound("udp", RS232_COMMAND_PORT) &&
               sim::IsPortBound("tcp", traffic_.PtzPort());
      },
      Patience());
  // A datagram that is served tells that the mode's loop runs.
  if (is_up) traffic_.SendDatagram();
  if (!is_up || !Await([this] { return traffic_.IsWaySettled(kDatagrams); }, Patience())) {
    report_.Violation("start", "a daemon that serves", daemon_->Output() + daemon_->Errors());
    is_lost_ = true;
    return;
  }
  // What a module answers to the start's questions goes out as datagrams.
  constexpr milliseconds kQuiet{300};
  const auto serving = Clock::now();
  Await(
      [&] {
        return traffic_.HasStarted() && Clock::now() - serving >= kQuiet &&
               traffic_.IsQuiet(kQuiet);
      },
      Patience());
  traffic_.SetStarting(false);
}

// Everything that was sent arrives.
void Session::Settle() {
  traffic_.SetFlowing(false);
  if (Await([this] { return traffic_.IsSettled(); }, Patience())) return;
  traffic_.ReportUnsettled();
  traffic_.Forget();
}

// Nothing is under way and nobody is there: what the daemon holds must be as it was at first.
void Session::StillPoint() {
  if (HasLens()) RestLens();
  Settle();
  AbandonStopped();
  for (int i = 0; i < kClients; ++i)
    traffic_.Shutdown(i);
  if (!Await([this] { return traffic_.Connected() == 0; }, Patience())) {
    report_.Violation("clients that closed their side", "the end of the connection", "none");
    traffic_.DropAll();
  }
  AwaitDescriptors("descriptors without clients", 0);
  // A lens's first search opens a channel of 100 KiB.
  watches_.Look(!HasLens() || CountInOutput("TRACE\t") > 0);
  if (!HasLens()) watches_.BeginIdle();
  Await([] { return false; }, kIdle);
  if (!HasLens()) watches_.EndIdle();
  ++report_.Count().still_points;
  ConnectAll();
  traffic_.SetFlowing(true);
}

void Session::Live(Time end) {
  const auto length = end - Clock::now();
  size_t descriptors = SIZE_MAX;
  // The fewest over a while: a lens's questions come and go.
  Await(
      [&] {
        descriptors = std::min(descriptors, sim::DescriptorCount(daemon_->Pid()));
        return false;
      },
      milliseconds(100));
  watches_.Begin(daemon_->Pid(), std::min(kFirstMinute, Half(length) / 2), descriptors);
  traffic_.SendHostile(kLargestHostile);  // uses the buffers to their ends
  ConnectAll();
  traffic_.SetFlowing(true);
  const auto still_every = std::clamp(Half(length) / 2, milliseconds(2000), milliseconds(10'000));
  auto next_still = Clock::now() + still_every;
  while (Clock::now() < end && !is_lost_) {
    Disturb();
    Pass(20, 600);
    if (Clock::now() < next_still || stopped_ != nullptr) continue;
    StillPoint();
    next_still = Clock::now() + still_every;
  }
}

void Session::Stop(End end) {
  // In order, with everything arrived, or in the middle of it.
  const bool is_settled =
      end == End::kOrder || (end == End::kTerminate && traffic_.Roll(0, 1) == 0);
  if (HasLens() && end != End::kKill) RestLens();
  if (is_settled) Settle();
  AbandonStopped();
  traffic_.SetFlowing(false);
  is_ending_ = true;
  if (end == End::kOrder) {
    sim::UdpPeer().SendTo(traffic_.Config().udp_port, sim::DaemonDatagram(RS232_UDP_STOP));
  } else {
    daemon_->Signal(end == End::kKill ? SIGKILL : SIGTERM);
  }
  ++(end == End::kKill ? report_.Count().kills : report_.Count().ends);
  for (int i = 0; i < kClients; ++i)
    traffic_.Shutdown(i);
  const int status = end == End::kKill ? -SIGKILL : 0;
  if (!Await([this] { return HasEnded(); }, Patience()) || *daemon_->WaitEnd() != status) {
    report_.Violation("end", "status " + std::to_string(status),
                      HasEnded() ? std::to_string(*daemon_->WaitEnd()) : watches_.Doing());
  }
  // What was on its way is either there by now or lost.
  Await([this] { return traffic_.Connected() == 0 && traffic_.IsQuiet(milliseconds(50)); },
        Patience());
  CheckLeftovers(end);
  traffic_.DropAll();
  traffic_.Forget();
}

void Session::CheckLeftovers(End end) {
  watches_.CheckLeftovers();
  if (end != End::kKill && !IsSame(traffic_.LineSettings(), line_before_)) {
    report_.Violation("line settings", "those of before", "others");
  }
  if (HasLens() && !sim::ReadWholePositions().has_value()) {
    report_.Violation("positions file", "a whole one", "another");
  }
}

void Session::Run(std::chrono::seconds time) {
  const auto end = Clock::now() + time;
  Start();
  for (int life = 1; !is_lost_; ++life) {
    const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
    const milliseconds length(life % kLongEvery == 0 ? traffic_.Roll(kShortLifeMax, kLongLifeMax)
                                                     : traffic_.Roll(kShortLifeMin, kShortLifeMax));
    const bool is_last = length + milliseconds(kShortLifeMin) > left && life > 1;
    Live(Clock::now() + (is_last ? left : std::min(length, left / 2)));
    if (is_lost_) return;
    if (is_last) break;
    const End how = static_cast<End>(traffic_.Roll(0, 2));
    Stop(how);
    Start();
    if (HasLens() && !is_lost_) CheckLensRestored(how == End::kKill);
  }
  if (!is_lost_) StillPoint();
  if (!is_lost_) Stop(End::kTerminate);
}

}  // namespace soak
