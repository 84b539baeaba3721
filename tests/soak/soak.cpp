// soaks: the daemon under mixed traffic for as long as told, in several modes at once.
//
//   soaks [--seed SEED] SECONDS [MODE...]     MODE: relay, sd, hd, lens; all without one
//
// Prints a line for whatever is wrong, then a table. Status 1 when something was.
#include <linux/close_range.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "bench/stopped_client.h"
#include "sim/world.h"
#include "tests/soak/session.h"

namespace {

constexpr int kUsageStatus = 2;

struct Plan {
  uint32_t seed = std::random_device()();
  std::chrono::seconds time{0};
  std::vector<const soak::Mode*> modes;
};

int Usage() {
  fprintf(stderr, "usage: soaks [--seed SEED] SECONDS [relay|sd|hd|lens]...\n");
  return kUsageStatus;
}

bool Parse(std::vector<std::string> arguments, Plan* plan) {
  if (arguments.size() >= 2 && arguments[0] == "--seed") {
    plan->seed = static_cast<uint32_t>(strtoul(arguments[1].c_str(), nullptr, 10));
    arguments.erase(arguments.begin(), arguments.begin() + 2);
  }
  if (arguments.empty()) return false;
  plan->time = std::chrono::seconds(atol(arguments[0].c_str()));
  for (const soak::Mode& mode : soak::Modes()) {
    const bool is_chosen =
        std::find(arguments.begin() + 1, arguments.end(), mode.name) != arguments.end();
    if (is_chosen || arguments.size() == 1) plan->modes.push_back(&mode);
  }
  const bool are_known = plan->modes.size() == arguments.size() - 1 || arguments.size() == 1;
  return plan->time.count() > 0 && are_known;
}

int RunMode(const Plan& plan, size_t index, soak::Counters* counters) {
  try {
    const bench::SmallSendBuffers small;
    soak::Session session(*plan.modes[index], plan.seed, RS232D_PATH, SHIM_LIBRARY_PATH, counters);
    session.Run(plan.time);
  } catch (const std::exception& error) {
    ++counters->violations;
    printf("%s: %s\n", plan.modes[index]->name, error.what());
  }
  fflush(stdout);
  return counters->violations == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  Plan plan;
  if (!Parse({argv + 1, argv + argc}, &plan)) return Usage();
  // What this process was started with must not reach the device programs.
  constexpr unsigned kFirst = 3;
  close_range(kFirst, ~0U, CLOSE_RANGE_CLOEXEC);
  printf("seed %u, %ld s\n", plan.seed, static_cast<long>(plan.time.count()));
  // The worlds are processes of their own.
  const size_t size = plan.modes.size() * sizeof(soak::Counters);
  void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return EXIT_FAILURE;
  auto* counters = static_cast<soak::Counters*>(memory);
  const int failed = sim::RunInWorlds(static_cast<int>(plan.modes.size()), [&](int world) {
    return RunMode(plan, static_cast<size_t>(world), counters + world);
  });
  std::vector<soak::Column> columns;
  for (size_t i = 0; i < plan.modes.size(); ++i)
    columns.push_back({.mode = plan.modes[i]->name, .counters = counters + i});
  soak::PrintTable(columns.data(), columns.size());
  return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
