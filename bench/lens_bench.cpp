// lens_bench: how well the focus search finds the peak and what it costs, and the processor time
// of an idle lens mode, measured on the real daemon with a simulated lens.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "bench/lens_measure.h"

namespace {

struct Options {
  int trials = 200;
  int worlds = 8;
  int idle_seconds = 10;
};

struct Tally {
  int trials = 0;
  int found = 0;
  int within_half = 0;   // half a fine step
  int within_whole = 0;  // a fine step
  int worst = 0;
  double error = 0;
  double measures = 0;
  double elapsed_ms = 0;
  double waits_ms = 0;
  int broken = 0;  // rules, truth or rest not kept

  void Add(const bench::SearchOutcome& outcome) {
    const sim::FocusVerdict& verdict = outcome.verdict;
    ++trials;
    found += outcome.found ? 1 : 0;
    within_half += verdict.error <= 5 ? 1 : 0;
    within_whole += verdict.error <= 10 ? 1 : 0;
    worst = std::max(worst, verdict.error);
    error += verdict.error;
    measures += verdict.measures;
    elapsed_ms += verdict.elapsed_ms;
    waits_ms += verdict.waits_ms;
    broken += verdict.rule_kept && verdict.always_still && outcome.truth_kept ? 0 : 1;
  }

  void Print(const char* name) const {
    const double count = std::max(trials, 1);
    printf("%-8s %6d %6.1f%% %5d %5d %6d %6.2f %9.1f %8.0f %8.3f %7d\n", name, trials,
           100 * found / count, within_half, within_whole, worst, error / count, measures / count,
           elapsed_ms / count, elapsed_ms / std::max(waits_ms, 1.0), broken);
  }
};

bool MeasureSearches(const Options& options) {
  bool good = true;
  std::array<Tally, sim::kTrialKinds> tallies;
  Tally all;
  for (const auto& outcome : bench::RunSearches(options.trials, options.worlds, &good)) {
    tallies[static_cast<size_t>(outcome.kind)].Add(outcome);
    all.Add(outcome);
  }
  printf("%-8s %6s %7s %5s %5s %6s %6s %9s %8s %8s %7s\n", "scene", "trials", "found", "<=5",
         "<=10", "worst", "mean", "measures", "ms", "ms/waits", "broken");
  for (int i = 0; i < sim::kTrialKinds; ++i)
    tallies[static_cast<size_t>(i)].Print(sim::NameOf(static_cast<sim::TrialKind>(i)));
  all.Print("all");
  return good && all.trials >= options.trials && all.broken == 0;
}

bool MeasureRests(int seconds) {
  bool good = true;
  for (const bench::LensRest& rest : bench::RunLensRests(seconds)) {
    good = good && rest.loop >= 0;
    printf("idle processor time, %-16s loop %6.2f%%, worker %6.2f%%\n", rest.legend, rest.loop,
           rest.worker);
  }
  return good;
}

int Run(const Options& options) {
  const bool searched = MeasureSearches(options);
  const bool rested = MeasureRests(options.idle_seconds);
  return searched && rested ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"Measures the focus search and the idle cost of the lens mode on a simulated lens."};
  app.add_option("--trials", options.trials, "focus searches, at least")
      ->check(CLI::Range(1, 100000))
      ->capture_default_str();
  app.add_option("--worlds", options.worlds, "devices at once")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  app.add_option("--idle-seconds", options.idle_seconds, "length of each idle measurement")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  try {
    return Run(options);
  } catch (const std::exception& error) {
    fprintf(stderr, "lens_bench: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
