// What goes on beside the traffic: clients come and go, some of them badly; the line goes.
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "bench/stopped_client.h"
#include "sim/leftovers.h"
#include "tests/soak/session.h"

namespace soak {
namespace {

using sim::Clock;
using sim::milliseconds;

constexpr int kMostClients = 10;
constexpr int kSmallReceiveBuffer = 2304;

// A client that takes nothing is dropped after 10 s; how much less and more may be seen, beside the
// longest time between two looks.
constexpr double kDropAfterS = 10;
constexpr double kDropEarlyS = 0.2;
constexpr double kDropLateS = 3;
// The kernel takes no more for it.
constexpr double kFullAfterS = 0.6;

sim::Bytes Noise(Traffic* traffic, int size) {
  sim::Bytes bytes(static_cast<size_t>(size));
  for (uint8_t& byte : bytes)
    byte = static_cast<uint8_t>(traffic->Roll(kNoiseFirst, kNoiseLast));
  return bytes;
}

bool IsClosed(const sim::PtzClient& client) {
  std::array<uint8_t, 4096> bytes;
  ssize_t count = 0;
  while ((count = recv(client.Fd(), bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0) {
  }
  return count == 0 || errno != EAGAIN;
}

}  // namespace

// A client that does not read any more.
struct Session::Stopped {
  explicit Stopped(int port) : client(port, kSmallReceiveBuffer), watch(port, client.Fd()) {}
  sim::PtzClient client;
  bench::StoppedClient watch;
  Time last_look = Clock::now();
  double longest_pause = 0;  // between two looks, seconds
};

void Session::Disturb() {
  struct Row {
    int weight;
    void (Session::*act)();
  };
  constexpr std::array<Row, 7> kRows = {{{6, &Session::LeaveAndReturn},
                                         {4, &Session::ResetAndReturn},
                                         {4, &Session::VisitWithNoise},
                                         {2, &Session::Crowd},
                                         {6, &Session::SendHostile},
                                         {1, &Session::LoseLine},
                                         {3, &Session::StopReading}}};
  constexpr int kAll = 26;
  int roll = traffic_.Roll(0, kAll - 1);
  for (const Row& row : kRows) {
    roll -= row.weight;
    if (roll >= 0) continue;
    (this->*row.act)();
    return;
  }
}

void Session::AwaitDescriptors(const char* what, size_t clients) {
  // One that stopped reading may be dropped meanwhile.
  const auto expected = [&] {
    return watches_.Descriptors() + clients + (stopped_ != nullptr ? 1 : 0);
  };
  const auto is_so = [&] { return sim::DescriptorCount(daemon_->Pid()) == expected(); };
  if (is_lost_ || Await(is_so, Patience()) || is_lost_) return;
  report_.Violation(what, std::to_string(expected()),
                    std::to_string(sim::DescriptorCount(daemon_->Pid())));
}

void Session::ConnectAll() {
  if (is_lost_) return;
  for (int i = 0; i < kClients; ++i)
    traffic_.Connect(i);
}

// All that it sent before it closed its side arrives, then the daemon closes the other.
void Session::LeaveAndReturn() {
  const int client = traffic_.Roll(0, kClients - 1);
  traffic_.Shutdown(client);
  const bool has_left = Await([&] { return traffic_.HasLeft(client); }, Patience());
  if (!has_left) report_.Violation("client that closed its side", "the end", watches_.Doing());
  traffic_.Drop(client);
  if (!Await([&] { return traffic_.IsWaySettled(client); }, Patience())) {
    report_.Violation("client that closed its side", "all of its bytes", "fewer");
    traffic_.Forget(client);
  }
  ++report_.Count().left;
  if (!is_lost_) traffic_.Connect(client);
}

// What was on its way may be lost, but nothing else.
void Session::ResetAndReturn() {
  const int client = traffic_.Roll(0, kClients - 1);
  // What the daemon has not read yet it still may: it has to be known when it is done with it.
  AwaitDescriptors("descriptors before a reset", kClients);
  traffic_.Reset(client);
  AwaitDescriptors("descriptors after a reset", kClients - 1);
  Pass(20, 60);
  traffic_.Forget(client);
  ++report_.Count().reset;
  if (!is_lost_) traffic_.Connect(client);
}

void Session::VisitWithNoise() {
  constexpr int kMostNoise = 800;
  sim::PtzClient visitor(traffic_.PtzPort());
  ++report_.Count().connected;
  visitor.Send(Noise(&traffic_, traffic_.Roll(1, kMostNoise)));
  Pass(0, 30);
  switch (traffic_.Roll(0, 2)) {
    case 0:
      ResetConnection(&visitor);
      break;
    case 1:
      visitor.Close();
      break;
    default:
      shutdown(visitor.Fd(), SHUT_WR);
      if (!Await([&] { return IsClosed(visitor); }, Patience())) {
        report_.Violation("visitor that closed its side", "the end", "none");
      }
  }
  ++report_.Count().left;
}

// More than there is room for: exactly so many are let in. Not of a lens mode, whose questions to
// the camera daemon open descriptors of their own: when the last client has left is not known.
void Session::Crowd() {
  if (HasLens()) return;
  AwaitDescriptors("descriptors before a crowd", kClients);
  const bool has_stopped = stopped_ != nullptr;
  const int room = kMostClients - kClients - (has_stopped ? 1 : 0);
  std::vector<sim::PtzClient> crowd;
  for (int i = 0; i < room + traffic_.Roll(1, 3); ++i) {
    crowd.emplace_back(traffic_.PtzPort());
    Tick();
  }
  const auto open = [&] {
    return static_cast<int>(std::ranges::count_if(crowd, std::not_fn(IsClosed)));
  };
  // The stopped one may be dropped meanwhile, which leaves room for one more.
  const auto is_full = [&] {
    return open() == room || (has_stopped && stopped_ == nullptr && open() == room + 1);
  };
  if (!Await(is_full, Patience())) {
    report_.Violation("clients of a crowd", std::to_string(room), std::to_string(open()));
  }
  report_.Count().connected += room;
  report_.Count().refused += static_cast<long>(crowd.size()) - room;
  for (sim::PtzClient& client : crowd)
    ResetConnection(&client);
  crowd.clear();
  AwaitDescriptors("descriptors after a crowd", kClients);
}

void Session::SendHostile() {
  traffic_.SendHostile(AnyHostileSize(traffic_.Random()));
}

// The device goes away and comes back, with bytes on their way or without.
void Session::LoseLine() {
  if (stopped_ != nullptr) return;
  if (HasLens()) RestLens();
  if (HasLens() || traffic_.Roll(0, 1) == 0) Settle();
  traffic_.SetFlowing(false);
  const size_t before = CountInOutput("serial line is back");
  traffic_.HangUp();
  Pass(0, 2500);
  traffic_.NewLine();
  line_before_ = traffic_.LineSettings();
  if (!AwaitInOutput("serial line is back", before + 1, Patience())) {
    report_.Violation("line", "that it is back", "none");
  }
  Pass(100, 150);
  traffic_.Forget();
  ++report_.Count().line_losses;
  traffic_.SetFlowing(true);
}

// --- A client that stops reading -----------------------------------------------------------------

void Session::StopReading() {
  if (stopped_ != nullptr || !mode_.feeds || Clock::now() < next_stopped_) return;
  constexpr milliseconds kNotWithin{20'000};
  next_stopped_ = Clock::now() + kNotWithin;
  stopped_ = std::make_shared<Stopped>(traffic_.PtzPort());
  ++report_.Count().connected;
  traffic_.SetBurst(true);
}

void Session::WatchStopped() {
  constexpr milliseconds kLookEvery{50};
  const auto now = Clock::now();
  if (stopped_ == nullptr || now < stopped_->last_look + kLookEvery) return;
  const std::chrono::duration<double> pause = now - stopped_->last_look;
  stopped_->longest_pause = std::max(stopped_->longest_pause, pause.count());
  stopped_->last_look = now;
  stopped_->watch.Look();
  const double idle = stopped_->watch.TakesNothingFor();
  // A pause of this program is none of the client's.
  if (idle > kFullAfterS + stopped_->longest_pause) traffic_.SetBurst(false);
  const double after = stopped_->watch.DroppedAfter();
  const double late = kDropAfterS + kDropLateS + stopped_->longest_pause;
  if (after < 0 && idle < late) return;
  if (after < kDropAfterS - kDropEarlyS - stopped_->longest_pause || after > late) {
    report_.Violation("client that stopped reading", "dropped after 10 s",
                      after < 0 ? "not dropped" : "dropped after " + std::to_string(after) + " s");
  }
  ++report_.Count().stopped;
  AbandonStopped();
}

void Session::AbandonStopped() {
  traffic_.SetBurst(false);
  stopped_.reset();
}

}  // namespace soak
