#include "bench/running.h"

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace bench {
namespace {

using sim::Clock;

constexpr std::chrono::microseconds kListenLook{100};
constexpr sim::milliseconds kStopLimit{2000};

// Processors that this process was given at the start.
std::vector<int> GivenProcessors() {
  cpu_set_t set;
  CPU_ZERO(&set);
  sched_getaffinity(0, sizeof(set), &set);
  std::vector<int> given;
  for (int i = 0; i < CPU_SETSIZE; ++i) {
    if (CPU_ISSET(i, &set)) given.push_back(i);
  }
  return given;
}

struct Processors {
  int bench = -1;  // -1: wherever the kernel likes
  int contender = -1;
};
Processors g_processors;

void MoveTo(int processor) {
  if (processor < 0) return;
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<size_t>(processor), &set);
  sched_setaffinity(0, sizeof(set), &set);
}

// What is started meanwhile runs on the contenders' processor from its first instruction on.
class OnContendersProcessor {
 public:
  OnContendersProcessor() { MoveTo(g_processors.contender); }
  ~OnContendersProcessor() { MoveTo(g_processors.bench); }
  OnContendersProcessor(const OnContendersProcessor&) = delete;
  OnContendersProcessor& operator=(const OnContendersProcessor&) = delete;
};

bool IsSame(const sim::Bytes& bytes, const Probe& probe) {
  return std::equal(bytes.begin(), bytes.end(), probe.begin(), probe.end());
}

}  // namespace

Probe NumberedProbe(int number) {
  return {0xFF, 0x01, 0x00, 0x02, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number),
          0x20};
}

std::string TakeProcessor() {
  const std::vector<int> given = GivenProcessors();
  if (given.size() < 2) return "bench and contender share the only processor";
  g_processors = {.bench = given[0], .contender = given[1]};
  MoveTo(g_processors.bench);
  return "bench on processor " + std::to_string(given[0]) + ", contender on processor " +
         std::to_string(given[1]);
}

Running::Running(const Contender& contender, const Seat& seat)
    : contender_(contender), seat_(seat), line_(seat.serial_path) {
  const std::vector<std::string> arguments = contender.prepare(seat);
  const auto begin = [&] {
    const OnContendersProcessor there;
    const auto now = Clock::now();
    process_ = std::make_unique<sim::DaemonProcess>(contender.program, arguments);
    return now;
  }();
  while (!IsListening(seat.port)) {
    const bool has_ended = process_->WaitEnd(sim::milliseconds(0)).has_value();
    if (has_ended || Clock::now() - begin > sim::kPatience) throw Unmeasured("does not start");
    std::this_thread::sleep_for(kListenLook);
  }
  start_seconds_ = std::chrono::duration<double>(Clock::now() - begin).count();
}

Running::~Running() {
  clients_.clear();
  process_->Stop(kStopLimit);
}

void Running::CheckServed(sim::PtzClient* client) {
  const Probe probe = NumberedProbe(static_cast<int>(clients_.size()));
  client->Send(probe);
  if (!IsSame(line_.Receive(probe.size()), probe)) throw Unmeasured("a client is not served");
}

void Running::Connect(int count, int first_buffer) {
  while (static_cast<int>(clients_.size()) < count) {
    const int buffer = clients_.empty() ? first_buffer : 0;
    clients_.push_back(std::make_unique<sim::PtzClient>(seat_.port, buffer));
    CheckServed(clients_.back().get());
  }
  clients_.resize(static_cast<size_t>(count));
  const Probe probe = NumberedProbe(count);
  if (count > 0) line_.Send(probe);
  for (const auto& client : clients_) {
    if (!IsSame(client->Receive(probe.size()), probe)) throw Unmeasured("a client gets no bytes");
  }
}

}  // namespace bench
