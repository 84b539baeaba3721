#include "bench/running.h"

#include <fcntl.h>
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "bench/stream.h"

namespace bench {
namespace {

using sim::Clock;

constexpr std::chrono::microseconds kListenLook{100};
constexpr sim::milliseconds kStopLimit{2000};

// Processors available to this process at the start.
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
  int bench = -1;  // -1: any
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

// While this object exists, new processes start on the contenders' processor.
class OnContendersProcessor {
 public:
  OnContendersProcessor() { MoveTo(g_processors.contender); }
  ~OnContendersProcessor() { MoveTo(g_processors.bench); }
  OnContendersProcessor(const OnContendersProcessor&) = delete;
  OnContendersProcessor& operator=(const OnContendersProcessor&) = delete;
};

bool IsSame(const sim::Bytes& bytes, std::span<const uint8_t> probe) {
  return std::equal(bytes.begin(), bytes.end(), probe.begin(), probe.end());
}

}  // namespace

std::span<const uint8_t> NumberedProbe(uint64_t number) {
  return StreamBytes(number * kProbeSize, kProbeSize);
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
    : port_(seat.port), line_(seat.serial_path) {
  const std::vector<std::string> arguments = contender.prepare(seat);
  const auto begin = [&] {
    const OnContendersProcessor there;
    const auto now = Clock::now();
    process_ = std::make_unique<sim::DaemonProcess>(contender.program, arguments);
    return now;
  }();
  while (!sim::IsPortBound("tcp", seat.port)) {
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

void Running::AddClient(int receive_buffer) {
  const auto probe = NumberedProbe(clients_.size());
  clients_.push_back(std::make_unique<sim::PtzClient>(port_, receive_buffer));
  clients_.back()->Send(probe);
  if (!IsSame(line_.Receive(probe.size()), probe)) throw Unmeasured("a client was not served");
  fcntl(clients_.back()->Fd(), F_SETFL, O_NONBLOCK);
}

void Running::Connect(int count, int first_buffer) {
  while (static_cast<int>(clients_.size()) < count)
    AddClient(clients_.empty() ? first_buffer : 0);
  clients_.resize(static_cast<size_t>(count));
  const auto probe = NumberedProbe(clients_.size());
  if (count > 0) line_.Send(probe);
  for (const auto& client : clients_) {
    if (!IsSame(client->Receive(probe.size()), probe))
      throw Unmeasured("a client received no bytes");
  }
}

std::vector<int> Running::Clients() const {
  std::vector<int> fds;
  for (const auto& client : clients_)
    fds.push_back(client->Fd());
  return fds;
}

}  // namespace bench
