// serial_bench: compares the daemon in relay mode with general serial-to-TCP relays on the same
// bench, and adds what the in-process paths cost.
//
// Measuring happens in a private world, in rounds: scene by scene, every contender in turn. What
// was found comes out as JSON; all reports are made from that, of this run or of an earlier one.
#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>

#include "bench/machine.h"
#include "bench/measure.h"
#include "bench/micro_results.h"
#include "bench/report.h"
#include "relay/daemon_datagram.h"
#include "sim/device.h"
#include "sim/unique_fd.h"
#include "sim/world.h"

namespace bench {

const Seat kOnlySeat = {.serial_path = "/dev/ttyS1", .port = 4001};

namespace {

// rounds, probes, bulk_share, line_seconds, stop_seconds, idle_seconds
constexpr Plan kOrdinary = {5, 200, 1, 5, 15, 5};
constexpr Plan kLong = {9, 1000, 4, 20, 60, 10};
constexpr Plan kQuick = {1, 20, 0.05, 0.2, 0.3, 0.3};

struct Options {
  bool quick = false;
  bool is_long = false;
  std::string json = "build/bench.json";
  std::string svg = "build/bench.svg";
  std::string readme;
  std::string micro;
  std::string from;
  std::vector<std::string> scenes;
  std::vector<std::string> contenders;
};

// --- Scenes ------------------------------------------------------------------------------------

struct Scene {
  const char* name;
  bool every_round;  // else once
  void (*measure)(const Plan& plan, int round, Session* session);
};

constexpr std::array<Scene, 4> kScenes = {{
    {"latency", true, MeasureLatency},
    {"bulk", true, [](const Plan& plan, int, Session* session) { MeasureBulk(plan, session); }},
    {"line", true, [](const Plan& plan, int, Session* session) { MeasureLine(plan, session); }},
    {"stopped", false,
     [](const Plan& plan, int, Session* session) { MeasureStoppedClient(plan, session); }},
}};
constexpr char kIdle[] = "idle";
constexpr char kSizes[] = "sizes";

bool IsAmong(const std::vector<std::string>& names, const std::string& name) {
  return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
}

bool IsWanted(const Options& options, const std::string& scene) {
  return IsAmong(options.scenes, scene);
}

void Progress(const std::string& text) {
  fprintf(stderr, "serial_bench: %s\n", text.c_str());
}

std::vector<const Contender*> TakePart(const Options& options, Results* results) {
  std::vector<const Contender*> contenders;
  for (const Contender& contender : Contenders()) {
    if (!IsAmong(options.contenders, contender.id)) continue;
    if (!IsInstalled(contender)) {
      Progress(std::string(contender.id) + " is missing: no " + contender.program);
      continue;
    }
    contenders.push_back(&contender);
    results->entrants.push_back(Describe(contender));
  }
  return contenders;
}

void RunRound(const Options& options, const Plan& plan, int round,
              const std::vector<const Contender*>& contenders, Results* results) {
  for (const Scene& scene : kScenes) {
    const bool is_due = scene.every_round || round == 0;
    if (!is_due || !IsWanted(options, scene.name)) continue;
    Progress("round " + std::to_string(round + 1) + " of " + std::to_string(plan.rounds) + ": " +
             scene.name);
    for (const Contender* contender : contenders) {
      Session session(*contender, kOnlySeat, results);
      scene.measure(plan, round, &session);
    }
  }
}

// Gives loopback a second address. Programs that look addresses up with AI_ADDRCONFIG find none
// where 127.0.0.1 is all there is.
void AddressLoopback() {
  const sim::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request = {};
  strcpy(request.ifr_name, "lo:1");
  auto* address = reinterpret_cast<sockaddr_in*>(&request.ifr_addr);
  address->sin_family = AF_INET;
  inet_pton(AF_INET, "192.0.2.1", &address->sin_addr);
  ioctl(fd.Get(), SIOCSIFADDR, &request);
}

// Everything that is compared, within a world.
Results Compare(const Options& options, const Plan& plan) {
  Results results;
  const std::vector<const Contender*> contenders = TakePart(options, &results);
  results.method.push_back(TakeProcessor());
  AddressLoopback();
  // Somebody listens where serial data datagrams go, as on the device; none is read here.
  const sim::UdpPeer data(SERIAL_DATA_PORT);
  for (int round = 0; round < plan.rounds; ++round)
    RunRound(options, plan, round, contenders, &results);
  if (IsWanted(options, kIdle)) {
    Progress(kIdle);
    MeasureIdle(plan, contenders, &results);
  }
  if (IsWanted(options, kSizes)) MeasureSizes(contenders, &results);
  return results;
}

// --- Between the world and the reports ---------------------------------------------------------

void WriteAll(int fd, const std::string& text) {
  for (size_t at = 0; at < text.size();) {
    const ssize_t written = write(fd, text.data() + at, text.size() - at);
    if (written < 0) throw std::runtime_error("cannot hand the results over");
    at += static_cast<size_t>(written);
  }
}

Results CompareInWorld(const Options& options, const Plan& plan) {
  const sim::UniqueFd found(memfd_create("serial_bench", MFD_CLOEXEC));
  const int status = sim::RunInWorld([&] {
    try {
      WriteAll(found.Get(), ToJson(Compare(options, plan)));
      return EXIT_SUCCESS;
    } catch (const std::exception& error) {
      Progress(error.what());
      return EXIT_FAILURE;
    }
  });
  if (status != EXIT_SUCCESS) throw std::runtime_error("the comparison did not come to its end");
  return FromJson(sim::ReadTextFile("/proc/self/fd/" + std::to_string(found.Get())));
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

Results Measure(const Options& options) {
  const Plan& plan = options.quick ? kQuick : options.is_long ? kLong : kOrdinary;
  const auto machine = DescribeMachine();
  const bool is_busy = BusyProcessors() > kMostBusy;
  if (is_busy) Progress(kBusy);
  Results results = CompareInWorld(options, plan);
  results.machine = machine;
  if (is_busy) results.method.emplace_back(kBusy);
  const std::vector<std::string> method = Method(plan);
  results.method.insert(results.method.end(), method.begin(), method.end());
  const char* subject = Contenders().front().id;
  if (!options.micro.empty()) AddMicroResults(options.micro, subject, &results);
  return results;
}

// --- Reports -----------------------------------------------------------------------------------

void WriteFile(const std::string& path, const std::string& text) {
  if (path.empty()) return;
  const auto directory = std::filesystem::path(path).parent_path();
  if (!directory.empty()) std::filesystem::create_directories(directory);
  sim::WriteTextFile(path, text);
}

int Run(const Options& options) {
  const Results results =
      options.from.empty() ? Measure(options) : FromJson(sim::ReadTextFile(options.from));
  fputs(TextReport(results).c_str(), stdout);
  if (options.from.empty()) WriteFile(options.json, ToJson(results));
  WriteFile(options.svg, SvgReport(results));
  if (!options.readme.empty()) {
    const std::string chart = "![The daemon beside other relays](" + options.svg + ")\n\n";
    WriteFile(options.readme,
              WithReport(sim::ReadTextFile(options.readme), chart + MarkdownReport(results)));
  }
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  bench::Options options;
  CLI::App app{"Compares the daemon in relay mode with general serial-to-TCP relays."};
  app.add_flag("--quick", options.quick,
               "a few seconds, to see that it works; no figures to quote");
  app.add_flag("--long", options.is_long, "more rounds, and a client stopped for 60 s");
  app.add_option("--json", options.json, "where the results go")->capture_default_str();
  app.add_option("--svg", options.svg, "where the charts go")->capture_default_str();
  app.add_option("--readme", options.readme, "document whose copy of the table is replaced");
  app.add_option("--micro", options.micro, "JSON output of micro_bench, to be added");
  app.add_option("--from", options.from, "reports on these results and measures nothing");
  app.add_option("--scene", options.scenes,
                 "only these: latency, bulk, line, stopped, idle, sizes");
  app.add_option("--contender", options.contenders, "only these, by their column");
  CLI11_PARSE(app, argc, argv);
  try {
    return bench::Run(options);
  } catch (const std::exception& error) {
    fprintf(stderr, "serial_bench: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
