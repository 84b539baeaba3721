// relay_bench: what the relay costs in time and processor, measured on the real daemon.
//
// Latency of a 7-byte frame from a PTZ client to the far end of the line and back the other way,
// with 1 and with 10 clients connected, and the processor time of an idle daemon.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <thread>
#include <vector>

#include "sim/daemon_process.h"
#include "sim/device.h"
#include "sim/peers.h"
#include "sim/pty_line.h"
#include "sim/world.h"

namespace {

using sim::Bytes;
using sim::Clock;
using sim::PtyLine;
using sim::PtzClient;

struct Options {
  int rounds = 2000;
  int idle_seconds = 10;
};

using Clients = std::vector<std::unique_ptr<PtzClient>>;

const Bytes kFrame = {0xFF, 0x01, 0x00, 0x02, 0x1D, 0x00, 0x20};

// Sleeps between two probes, so that each finds the daemon idle.
constexpr std::chrono::microseconds kBetweenProbes{1500};

Clients Connect(int count, const sim::DeviceConfig& config, PtyLine* line) {
  Clients clients;
  for (int i = 0; i < count; ++i) {
    clients.push_back(std::make_unique<PtzClient>(config.ptz_port));
    // Served once its bytes come through.
    clients.back()->Send(kFrame);
    if (line->Receive(kFrame.size()) != kFrame) throw std::runtime_error("a client is not served");
  }
  return clients;
}

double Microseconds(Clock::duration time) {
  return std::chrono::duration<double, std::micro>(time).count();
}

template <typename Probe>
void Report(const char* legend, int clients, int rounds, Probe probe) {
  std::vector<double> times;
  for (int i = 0; i < rounds; ++i) {
    std::this_thread::sleep_for(kBetweenProbes);
    const auto begin = Clock::now();
    probe();
    times.push_back(Microseconds(Clock::now() - begin));
  }
  std::sort(times.begin(), times.end());
  const auto at = [&times](size_t percent) { return times[(times.size() - 1) * percent / 100]; };
  printf("%-34s %7d %9.1f %9.1f\n", legend, clients, at(50), at(99));
}

void Expect(bool good) {
  if (!good) throw std::runtime_error("bytes were lost");
}

void MeasureLatency(int count, const sim::DeviceConfig& config, int rounds, PtyLine* line) {
  const Clients clients = Connect(count, config, line);
  PtzClient& last = *clients.back();
  Report("PTZ client to serial line", count, rounds, [&] {
    last.Send(kFrame);
    Expect(line->Receive(kFrame.size()) == kFrame);
  });
  Report("serial line to every PTZ client", count, rounds, [&] {
    line->Send(kFrame);
    for (const auto& client : clients)
      Expect(client->Receive(kFrame.size()) == kFrame);
  });
}

void MeasureIdle(int count, const sim::DeviceConfig& config, int seconds,
                 const sim::DaemonProcess& daemon, PtyLine* line) {
  const Clients clients = Connect(count, config, line);
  const double before = daemon.CpuSeconds();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double used = daemon.CpuSeconds() - before;
  printf("%-34s %7d %8.2f%%\n", "idle processor time", count, 100 * used / seconds);
}

int Run(const Options& options) {
  const sim::DeviceConfig config;
  PtyLine line(config.serial_path);
  sim::InstallDevice(config);
  sim::DaemonProcess daemon(RS232D_PATH, {});
  if (!daemon.WaitServing(config)) throw std::runtime_error("the daemon does not come up");
  printf("%-34s %7s %9s %9s\n", "", "clients", "p50 us", "p99 us");
  for (const int count : {1, 10})
    MeasureLatency(count, config, options.rounds, &line);
  for (const int count : {0, 10}) {
    MeasureIdle(count, config, options.idle_seconds, daemon, &line);
  }
  return daemon.Stop() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int RunGuarded(const Options& options) {
  try {
    return Run(options);
  } catch (const std::exception& error) {
    fprintf(stderr, "relay_bench: %s\n", error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"Measures latency and idle cost of the relay on a virtual device."};
  app.add_option("--rounds", options.rounds, "probes a figure")
      ->check(CLI::Range(100, 1000000))
      ->capture_default_str();
  app.add_option("--idle-seconds", options.idle_seconds, "length of the idle measurement")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  return sim::RunInWorld([&options] { return RunGuarded(options); });
}
