// Latency: from the call that hands a probe of 7 bytes over to the return of the call that has its
// last byte. The bench sleeps in poll meanwhile and for 1 to 2 ms, at random, before each probe:
// long enough for every contender to be asleep, in step with none of its timers.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <thread>

#include "bench/measure.h"
#include "bench/statistics.h"

namespace bench {
namespace {

using sim::Clock;

constexpr char kSection[] = "Latency of a 7-byte frame, p50 and p99";
constexpr int kPauseLeastUs = 1000;
constexpr int kPauseMostUs = 2000;

using Receive = ssize_t (*)(int fd, void* buffer, size_t size);

ssize_t ReadLine(int fd, void* buffer, size_t size) {
  return read(fd, buffer, size);
}

ssize_t ReadClient(int fd, void* buffer, size_t size) {
  return recv(fd, buffer, size, MSG_DONTWAIT);
}

// One probe on its way to one or more receivers.
class Flight {
 public:
  Flight(const Probe& probe, const std::vector<int>& receivers, Receive receive)
      : probe_(probe), receive_(receive), begin_(Clock::now()) {
    for (const int fd : receivers)
      waiting_.push_back({.poll = {.fd = fd, .events = POLLIN, .revents = 0}, .received = 0});
  }

  // Waits until every receiver has the probe.
  void Land() {
    for (size_t left = waiting_.size(); left > 0;) {
      polls_.clear();
      for (const Waiting& waiting : waiting_)
        polls_.push_back(waiting.poll);
      if (poll(polls_.data(), polls_.size(), static_cast<int>(sim::kPatience.count())) <= 0) {
        throw Unmeasured("of a frame's " + std::to_string(kProbeSize) + " bytes " +
                         std::to_string(Least()) + " arrive");
      }
      for (size_t i = 0; i < waiting_.size(); ++i) {
        if (polls_[i].revents != 0 && Take(&waiting_[i])) --left;
      }
    }
  }

  double FirstUs() const { return first_us_; }
  double LastUs() const { return last_us_; }

 private:
  struct Waiting {
    pollfd poll;
    size_t received;
  };

  size_t Least() const {
    return std::min_element(
               waiting_.begin(), waiting_.end(),
               [](const Waiting& a, const Waiting& b) { return a.received < b.received; })
        ->received;
  }

  // Returns true when the receiver now has the whole probe.
  bool Take(Waiting* waiting) {
    std::array<uint8_t, kProbeSize> bytes;
    const ssize_t count = receive_(waiting->poll.fd, bytes.data(), kProbeSize - waiting->received);
    if (count <= 0) throw Unmeasured("a connection ends");
    if (!std::equal(bytes.begin(), bytes.begin() + count,
                    probe_.begin() + static_cast<std::ptrdiff_t>(waiting->received))) {
      throw Unmeasured("a frame is changed on its way");
    }
    waiting->received += static_cast<size_t>(count);
    if (waiting->received < kProbeSize) return false;
    last_us_ = std::chrono::duration<double, std::micro>(Clock::now() - begin_).count();
    if (first_us_ == 0) first_us_ = last_us_;
    waiting->poll.fd = -1;
    return true;
  }

  const Probe& probe_;
  Receive receive_;
  std::vector<Waiting> waiting_;
  std::vector<pollfd> polls_;
  Clock::time_point begin_;
  double first_us_ = 0;
  double last_us_ = 0;
};

// The two figures of one series of probes.
std::vector<Figure> Series(const std::string& id, const std::string& label) {
  return {{id + ".p50", kSection, label + ", p50", "us", Better::kLess},
          {id + ".p99", kSection, label + ", p99", "us", Better::kLess}};
}

std::vector<double> Values(const std::vector<double>& times) {
  constexpr double kTail = 99;
  return {Median(times), Percentile(times, kTail)};
}

void Pause(std::mt19937* random) {
  std::uniform_int_distribution<int> pause(kPauseLeastUs, kPauseMostUs);
  std::this_thread::sleep_for(std::chrono::microseconds(pause(*random)));
}

std::vector<double> ProbeToLine(int probes, std::mt19937* random, Running* running) {
  sim::PtzClient& last = *running->Clients().back();
  std::vector<double> times;
  for (int i = 0; i < probes; ++i) {
    const Probe probe = NumberedProbe(i);
    Pause(random);
    Flight flight(probe, {running->Line().FarEnd()}, ReadLine);
    last.Send(probe);
    flight.Land();
    times.push_back(flight.LastUs());
  }
  return Values(times);
}

std::vector<double> ProbeToClients(int probes, std::mt19937* random, Running* running) {
  std::vector<int> receivers;
  for (const auto& client : running->Clients())
    receivers.push_back(client->Fd());
  std::vector<double> first;
  std::vector<double> last;
  for (int i = 0; i < probes; ++i) {
    const Probe probe = NumberedProbe(i);
    Pause(random);
    Flight flight(probe, receivers, ReadClient);
    running->Line().Send(probe);
    flight.Land();
    first.push_back(flight.FirstUs());
    last.push_back(flight.LastUs());
  }
  std::vector<double> values = Values(last);
  const std::vector<double> first_values = Values(first);
  values.insert(values.end(), first_values.begin(), first_values.end());
  return values;
}

std::vector<Figure> Joined(std::vector<Figure> figures, const std::vector<Figure>& more) {
  figures.insert(figures.end(), more.begin(), more.end());
  return figures;
}

}  // namespace

void MeasureLatency(const Plan& plan, int round, Session* session) {
  // Every contender gets the same pauses.
  std::mt19937 random(static_cast<uint32_t>(round));
  const auto to_line = [&](Running& running) {
    return ProbeToLine(plan.probes, &random, &running);
  };
  const auto to_clients = [&](Running& running) {
    return ProbeToClients(plan.probes, &random, &running);
  };
  const auto with = [](int clients, auto measure) {
    return [clients, measure](Running& running) {
      running.Connect(clients);
      return measure(running);
    };
  };
  session->Record(1, Series("latency.to_line.1", "client to line, 1 client"), with(1, to_line));
  session->Record(1, Series("latency.to_client.1", "line to client, 1 client"),
                  with(1, [&](Running& running) {
                    std::vector<double> values = to_clients(running);
                    values.resize(2);
                    return values;
                  }));
  session->Record(kManyClients, Series("latency.to_line.10", "client to line, 10 clients"),
                  with(kManyClients, to_line));
  session->Record(kManyClients,
                  Joined(Series("latency.to_all.10", "line to all of 10 clients"),
                         Series("latency.to_first.10", "line to the first of 10 clients")),
                  with(kManyClients, to_clients));
}

}  // namespace bench
