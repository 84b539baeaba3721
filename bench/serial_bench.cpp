// serial_bench: compares the daemon in relay mode with general serial-to-TCP relays on the same
// bench, and adds what the in-process paths cost.
//
// Everything happens in a private world, in rounds: scene by scene, every contender in turn.
#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <CLI/CLI.hpp>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "bench/machine.h"
#include "bench/measure.h"
#include "bench/report.h"
#include "relay/daemon_datagram.h"
#include "sim/device.h"
#include "sim/world.h"
#include "tools/unique_fd.h"

namespace bench {
namespace {

const Seat kOnlySeat = {.serial_path = "/dev/ttyS1", .port = 4001};
constexpr char kReportPath[] = "docs/benchmarks.md";
constexpr char kChartPath[] = "docs/pictures/bench.svg";
constexpr char kChartLink[] = "![The daemon beside other relays](pictures/bench.svg)\n\n";

// rounds, probes, bulk_share, line_seconds, stop_seconds, idle_seconds, path_seconds
constexpr Plan kOrdinary = {5, 200, 1, 5, 15, 5, 0.1};
constexpr Plan kLong = {9, 1000, 4, 20, 60, 10, 0.1};
constexpr Plan kQuick = {1, 20, 0.05, 0.2, 0.3, 0.3, 0.01};

struct Scene {
  const char* name;
  bool every_round;  // else once
  void (*measure)(const Plan& plan, int round, Session* session);
};

constexpr std::array<Scene, 5> kScenes = {{
    {"latency", true, MeasureLatency},
    {"bulk", true, [](const Plan& plan, int, Session* session) { MeasureBulk(plan, session); }},
    {"line", true, [](const Plan& plan, int, Session* session) { MeasureLine(plan, session); }},
    {"stopped client", false,
     [](const Plan& plan, int, Session* session) { MeasureStoppedClient(plan, session); }},
    {"sizes", false, [](const Plan&, int, Session* session) { session->RecordSize(); }},
}};

void Progress(const std::string& text) {
  fprintf(stderr, "serial_bench: %s\n", text.c_str());
}

std::vector<Entrant> TakePart() {
  std::vector<Entrant> entrants;
  for (const Contender& contender : Contenders()) {
    if (IsInstalled(contender)) {
      entrants.push_back({&contender, VersionOf(contender)});
    } else {
      Progress(std::string(contender.id) + " is missing: no " + contender.program);
    }
  }
  return entrants;
}

void RunRound(const Plan& plan, int round, Results* results) {
  for (const Scene& scene : kScenes) {
    if (!scene.every_round && round > 0) continue;
    Progress("round " + std::to_string(round + 1) + " of " + std::to_string(plan.rounds) + ": " +
             scene.name);
    for (const Entrant& entrant : results->entrants) {
      Session session(*entrant.kind, kOnlySeat, results);
      scene.measure(plan, round, &session);
    }
  }
}

// Gives loopback a second address. Programs that look addresses up with AI_ADDRCONFIG find none
// where 127.0.0.1 is all there is.
void AddressLoopback() {
  const tools::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request = {};
  strcpy(request.ifr_name, "lo:1");
  auto* address = reinterpret_cast<sockaddr_in*>(&request.ifr_addr);
  address->sin_family = AF_INET;
  inet_pton(AF_INET, "192.0.2.1", &address->sin_addr);
  ioctl(fd.Get(), SIOCSIFADDR, &request);
}

// Processors that others keep busy, beyond which the figures say little.
constexpr double kMostBusy = 0.2;
constexpr char kBusy[] = "the machine was busy with other work: no figures to quote";

std::vector<std::string> Method(const Plan& plan) {
  return {
      "medians over " + std::to_string(plan.rounds) +
          " rounds, every contender in turn in each; started anew for each scene; a contender "
          "that fails in one round has no value",
      "the last two columns: the daemon's value divided by the best peer's and by minimal's",
      "latency: " + std::to_string(plan.probes) +
          " probes a round, 1 to 2 ms (at random, the same for all) after the one before; from "
          "the call that sends to the return of the call that has the last byte",
      "bulk: the line is fed in pieces of 64 bytes; at most 8 KiB are on their way at any time, "
      "since a pty holds no more and, unlike a line, does not hold the writer back (but for the 1 "
      "MiB piece); where a contender is faster than the feeding bench, the rate is the bench's",
      "line at 11 520 bytes/s: a chunk of about 23 bytes every 2 ms; a chunk counts as arrived "
      "at each client by itself",
      "stopped client: its receive buffer about 4 KiB, every send buffer at most 16 KiB, so that "
      "the contender notices within seconds",
      "idle: all contenders side by side; wake-ups are voluntary context switches of all threads",
      "processor time is that of the process and its children; what the kernel's own threads do "
      "for the pty counts for nobody",
      "memory with a client or ten connected after the bulk run; sizes without shared libraries"};
}

Results Measure(const Plan& plan) {
  // A connection that a contender closes must not end the bench. What it starts has the default.
  signal(SIGPIPE, [](int) {});
  Results results;
  results.machine = DescribeMachine();
  const bool is_busy = BusyProcessors() > kMostBusy;
  if (is_busy) Progress(kBusy);
  results.entrants = TakePart();
  results.method = Method(plan);
  results.method.insert(results.method.begin(), TakeProcessor());
  if (is_busy) results.method.emplace_back(kBusy);
  AddressLoopback();
  // Somebody listens where serial data datagrams go, as on the device; none is read here.
  const sim::UdpPeer data(SERIAL_DATA_PORT);
  for (int round = 0; round < plan.rounds; ++round)
    RunRound(plan, round, &results);
  Progress("idle");
  MeasureIdle(plan, &results);
  Progress("in-process paths");
  MeasurePaths(plan, &results);
  return results;
}

// --- Reports -----------------------------------------------------------------------------------

// A file that is opened outside the world, which may have another one in its place, and written
// within.
class Outside {
 public:
  explicit Outside(const char* path) : fd_(open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (!fd_.IsOpen()) throw std::runtime_error(std::string("cannot open ") + path);
  }
  std::string Path() const { return "/proc/self/fd/" + std::to_string(fd_.Get()); }

 private:
  tools::UniqueFd fd_;
};

void UpdateDocs(const Results& results, const Outside& report, const Outside& chart) {
  const std::string before = sim::ReadTextFile(report.Path());
  sim::WriteTextFile(report.Path(), WithReport(before, kChartLink + TableReport(results)));
  sim::WriteTextFile(chart.Path(), SvgReport(results));
}

int Run(const Plan& plan, bool update_docs) {
  std::optional<Outside> report;
  std::optional<Outside> chart;
  if (update_docs) {
    report.emplace(kReportPath);
    chart.emplace(kChartPath);
  }
  return sim::RunInWorld([&] {
    try {
      const Results results = Measure(plan);
      fputs(TableReport(results).c_str(), stdout);
      if (update_docs) UpdateDocs(results, *report, *chart);
      return EXIT_SUCCESS;
    } catch (const std::exception& error) {
      Progress(error.what());
      return EXIT_FAILURE;
    }
  });
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  bool quick = false;
  bool is_long = false;
  bool update_docs = false;
  CLI::App app{"Compares the daemon in relay mode with general serial-to-TCP relays."};
  app.add_flag("--quick", quick, "a few seconds, to see that it works; no figures to quote");
  app.add_flag("--long", is_long, "more rounds, and a client stopped for 60 s");
  app.add_flag("--docs", update_docs, "replace the report and the chart in docs/");
  CLI11_PARSE(app, argc, argv);
  try {
    return bench::Run(quick     ? bench::kQuick
                      : is_long ? bench::kLong
                                : bench::kOrdinary,
                      update_docs);
  } catch (const std::exception& error) {
    bench::Progress(error.what());
    return EXIT_FAILURE;
  }
}
