// Latency: from the call that sends a 7-byte probe to the return of the call that reads its last
// byte. Before each probe the bench pauses for a random 1 to 2 ms: long enough for every contender
// to fall asleep, and not in step with its timers.
#include <unistd.h>

#include <thread>

#include "bench/measure.h"
#include "bench/statistics.h"
#include "bench/stream.h"

namespace bench {
namespace {

using sim::Clock;

constexpr char kSection[] = "Latency of a 7-byte frame, p50 and p99";
constexpr int kPauseLeastUs = 1000;
constexpr int kPauseMostUs = 2000;

// The figures of one series of probes.
std::vector<Figure> Series(const std::string& id, const std::string& label) {
  return {{id + ".p50", kSection, label + ", p50", "us"},
          {id + ".p99", kSection, label + ", p99", "us"}};
}

// Sends numbered probes from one descriptor to one or more others. Returns median and p99 of the
// time until the last receiver has a probe, then of the time until the first one has it.
std::vector<double> SendProbes(int probes, std::mt19937* random, int from,
                               const std::vector<int>& to) {
  Clock::time_point begin;
  uint64_t end = 0;
  std::vector<double> times;  // of the current probe
  Receivers receivers(to, [&](size_t index, Clock::time_point when) {
    const std::chrono::duration<double, std::micro> time = when - begin;
    if (receivers.Received(index) == end) times.push_back(time.count());
  });
  std::uniform_int_distribution<int> pause(kPauseLeastUs, kPauseMostUs);
  std::vector<double> last;
  std::vector<double> first;
  for (int i = 0; i < probes; ++i) {
    const auto probe = NumberedProbe(static_cast<uint64_t>(i));
    end += probe.size();
    times.clear();
    std::this_thread::sleep_for(std::chrono::microseconds(pause(*random)));
    begin = Clock::now();
    if (write(from, probe.data(), probe.size()) != static_cast<ssize_t>(probe.size())) {
      throw Unmeasured("a probe was not accepted");
    }
    while (times.size() < to.size()) {
      if (!receivers.Read(sim::kPatience)) throw Unmeasured("a probe did not arrive");
    }
    last.push_back(times.back());
    first.push_back(times.front());
  }
  constexpr double kTail = 99;
  return {Median(last), Percentile(last, kTail), Median(first), Percentile(first, kTail)};
}

}  // namespace

void MeasureLatency(const Plan& plan, int round, Session* session) {
  // The pauses are the same for every contender.
  std::mt19937 random(static_cast<uint32_t>(round));
  const auto record = [&](bool to_line, int clients, const std::vector<Figure>& figures) {
    session->Record(clients, figures, [&](Running& running) {
      running.Connect(clients);
      const std::vector<int> fds = running.Clients();
      return to_line ? SendProbes(plan.probes, &random, fds.back(), {running.Line()})
                     : SendProbes(plan.probes, &random, running.Line(), fds);
    });
  };
  record(true, 1, Series("latency.to_line.1", "client to line, 1 client"));
  record(false, 1, Series("latency.to_client.1", "line to client, 1 client"));
  record(true, kManyClients, Series("latency.to_line.10", "client to line, 10 clients"));
  std::vector<Figure> all = Series("latency.to_all.10", "line to all of 10 clients");
  const auto first = Series("latency.to_first.10", "line to the first of 10 clients");
  all.insert(all.end(), first.begin(), first.end());
  record(false, kManyClients, all);
}

}  // namespace bench
