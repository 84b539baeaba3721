// The line at its full rate, 11 520 bytes a second in chunks of about 23 bytes every 2 ms: its
// cost, and the effect of one of ten clients that stops reading.
#include <cmath>
#include <optional>

#include "bench/line_feed.h"
#include "bench/measure.h"
#include "bench/statistics.h"
#include "bench/stopped_client.h"

namespace bench {
namespace {

using sim::Clock;

constexpr char kSection[] = "Line at 11 520 bytes/s";
constexpr char kStoppedSection[] = "One of 10 clients stops reading, line at 11 520 bytes/s";
constexpr double kTail = 99;
constexpr double kPercent = 100;

std::vector<Figure> LineFigures(int clients) {
  const std::string id = "line." + std::to_string(clients);
  const std::string with = ", " + std::to_string(clients) + (clients == 1 ? " client" : " clients");
  return {{id + ".cpu", kSection, "processor" + with, "%"},
          {id + ".p99", kSection, "latency of a chunk" + with + ", p99", "us"}};
}

std::vector<double> FeedAndCount(int clients, double seconds, Running* running) {
  running->Connect(clients);
  LineFeed feed(*running);
  const double before = running->Cpu();
  const auto begin = Clock::now();
  feed.Run(seconds);
  const double passed = std::chrono::duration<double>(Clock::now() - begin).count();
  const double used = running->Cpu() - before;
  if (feed.MissingBytes() > 0) throw Unmeasured("bytes lost");
  return {kPercent * used / passed, Percentile(feed.TakeTimes(), kTail)};
}

// --- A client that stops reading ----------------------------------------------------------------

constexpr int kSmallReceiveBuffer = 4096;
constexpr double kBeforeSeconds = 2;
// The client that stops is the first, because some contenders serve clients in order.
constexpr size_t kStopped = 0;

const std::vector<Figure> kStoppedFigures = {
    {"stopped.missing", kStoppedSection, "bytes that the other nine miss", "bytes"},
    {"stopped.before.p99", kStoppedSection, "latency of a chunk before, p99", "ms"},
    {"stopped.during.p99", kStoppedSection, "latency of a chunk at the other nine, p99", "ms"}};
const Figure kDropFigure = {"stopped.drop", kStoppedSection,
                            "dropped after its connection last took a byte", "s"};

struct Stop {
  std::vector<double> values;  // of kStoppedFigures
  double dropped_after = 0;
};

Stop StopOne(double seconds, Running* running) {
  running->Connect(kManyClients, kSmallReceiveBuffer);
  LineFeed feed(*running);
  feed.Run(kBeforeSeconds);
  const double before = Percentile(feed.TakeTimes(), kTail);
  StoppedClient stopped(running->Port(), running->Clients()[kStopped]);
  feed.StopReading(kStopped);
  feed.Run(seconds, [&stopped] { stopped.Look(); });
  const double during = Percentile(feed.TakeTimes(), kTail);
  constexpr double kUsPerMs = 1000;
  return {
      .values = {static_cast<double>(feed.MissingBytes()), before / kUsPerMs, during / kUsPerMs},
      .dropped_after = stopped.DroppedAfter()};
}

}  // namespace

void MeasureLine(const Plan& plan, Session* session) {
  const double seconds = plan.line_seconds / plan.rounds;
  for (const int clients : {1, kManyClients}) {
    session->Record(clients, LineFigures(clients),
                    [=](Running& running) { return FeedAndCount(clients, seconds, &running); });
  }
}

void MeasureStoppedClient(const Plan& plan, Session* session) {
  if (session->Kind().no_stopped_client != nullptr) {
    session->Refuse(kStoppedFigures, session->Kind().no_stopped_client);
    session->Refuse({kDropFigure}, session->Kind().no_stopped_client);
    return;
  }
  const SmallSendBuffers small;
  std::optional<Stop> stop;
  session->Record(kManyClients, kStoppedFigures, [&](Running& running) {
    stop = StopOne(plan.stop_seconds, &running);
    return stop->values;
  });
  session->Record(kManyClients, {kDropFigure}, [&](const Running&) -> std::vector<double> {
    if (!stop.has_value()) throw Unmeasured("its run failed");
    if (stop->dropped_after >= 0) return {stop->dropped_after};
    throw Unmeasured("not within " + std::to_string(std::lround(plan.stop_seconds)) + " s");
  });
}

}  // namespace bench
