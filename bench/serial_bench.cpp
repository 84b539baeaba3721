// serial_bench: compares the daemon in relay mode with general serial-to-TCP relays on the same
// bench, and measures the in-process paths.
//
// Everything runs in a private world, in rounds: scene by scene, contender by contender.
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
constexpr char kChartLink[] = "![The daemon compared with other relays](pictures/bench.svg)\n\n";

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
      Progress(std::string(contender.id) + " is not installed: " + contender.program);
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

// Adds a second address to loopback. With 127.0.0.1 alone, programs that resolve addresses with
// AI_ADDRCONFIG find none.
void AddressLoopback() {
  const tools::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request = {};
  strcpy(request.ifr_name, "lo:1");
  auto* address = reinterpret_cast<sockaddr_in*>(&request.ifr_addr);
  address->sin_family = AF_INET;
  inet_pton(AF_INET, "192.0.2.1", &address->sin_addr);
  ioctl(fd.Get(), SIOCSIFADDR, &request);
}

// Maximum number of processors busy with other work for meaningful figures.
constexpr double kMostBusy = 0.2;
constexpr char kBusy[] = "the machine was busy with other work: do not quote these figures";

std::vector<std::string> Method(const Plan& plan) {
  return {
      "medians over " + std::to_string(plan.rounds) +
          " rounds; each round runs every contender in turn, restarted for each scene; a contender "
          "that fails in any round has no value",
      "the last two columns: the daemon's value divided by that of the best peer and of minimal",
      "latency: " + std::to_string(plan.probes) +
          " probes a round, each 1 to 2 ms (random, the same for all) after the one before; from "
          "the send call to the return of the call that reads the last byte",
      "bulk: the line is fed in pieces of 64 bytes; except for the 1 MiB piece, at most 8 KiB are "
      "in "
      "transit, since a pty holds no more and, unlike a line, does not block the writer; the rate "
      "of the bench limits contenders that are faster",
      "line at 11 520 bytes/s: a chunk of about 23 bytes every 2 ms; the arrival at each client "
      "counts separately",
      "stopped client: with a receive buffer of about 4 KiB and send buffers of at most 16 KiB, "
      "the "
      "contender notices within seconds",
      "idle: all contenders side by side; wake-ups are voluntary context switches of all threads",
      "processor time: of the process and its children, without the kernel threads that serve the "
      "pty",
      "memory after the bulk run: with one or ten clients connected; sizes: without shared "
      "libraries"};
}

Results Measure(const Plan& plan) {
  // A contender that closes a connection must not kill the bench. A handler, unlike SIG_IGN, is not
  // inherited by the contenders.
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
  // Binds the port of serial data datagrams, as on the device, but reads none.
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

// A file opened outside the world, where its path may be hidden, and written inside.
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
  CLI::App app{"Compare the daemon in relay mode with general serial-to-TCP relays."};
  app.add_flag("--quick", quick, "a smoke test of a few seconds; do not quote its figures");
  app.add_flag("--long", is_long, "more rounds, and 60 s with a stopped client");
  app.add_flag("--docs", update_docs, "update the report and the chart in docs/");
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
