// faults: makes every call of the daemon fail, one after the other.
//
//   faults matrix [MODE...]   every failure of every mode, or of those named
//   faults sample MODE        a few of them
//   faults kills [COUNT]      SIGKILL at every call of a start and of a save, then at COUNT random
//                             moments of each (default: 500)
#include <linux/close_range.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "sim/world.h"
#include "tests/fault/fault_plan.h"
#include "tests/fault/session.h"

namespace {

constexpr int kWorlds = 2;
// Points of a sample.
constexpr size_t kSampleSize = 16;
constexpr int kUsageStatus = 2;

using std::chrono::microseconds;

double SecondsSince(sim::Clock::time_point start) {
  return std::chrono::duration<double>(sim::Clock::now() - start).count();
}

struct Tally {
  int tried = 0;
  int missed = 0;
  int wrong = 0;
};

void Report(const std::string& name, const std::string& wrong) {
  printf("%s\n%s", name.c_str(), wrong.c_str());
  fflush(stdout);
}

// Runs one session for a point. One that went wrong, or in which the call did not come again, is
// tried once more: the machine may have stalled, and two threads do not always call in the same
// order.
void Try(fault::Session* session, const std::string& name, const std::function<std::string()>& run,
         Tally* tally) {
  ++tally->tried;
  std::string wrong;
  bool was_hit = false;
  for (int attempt = 0; attempt < 2; ++attempt) {
    wrong = run();
    was_hit = session->WasHit();
    if (wrong.empty() && was_hit) return;
  }
  if (!was_hit) {
    ++tally->missed;
    Report(name, "  did not come about\n");
  }
  if (wrong.empty()) return;
  ++tally->wrong;
  Report(name, wrong);
}

const fault::Mode& ModeNamed(std::string_view name) {
  return *std::ranges::find(fault::Modes(), name,
                            [](const fault::Mode& mode) { return std::string_view(mode.name); });
}

// A run in which hardly a failure came about proves nothing.
int StatusOf(const Tally& tally) {
  const bool is_sound = tally.tried > 0 && tally.missed * 2 <= tally.tried;
  if (!is_sound) printf("%d of %d did not come about\n", tally.missed, tally.tried);
  return is_sound && tally.wrong == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

// --- The matrix --------------------------------------------------------------------------------

int RunMatrix(const fault::Mode& mode, bool is_sample) {
  const auto start = sim::Clock::now();
  const int failed = sim::RunInWorlds(kWorlds, [&](int world) {
    fault::Session session(mode, RS232D_PATH, FAULT_LIBRARY_PATH);
    const auto calls = session.Record();
    const auto points = fault::PlanMatrix(calls);
    if (const std::string wrong = session.Run(nullptr); !wrong.empty()) {
      Report("without a failure", wrong);
      return EXIT_FAILURE;
    }
    const size_t stride = is_sample ? std::max<size_t>(points.size() / kSampleSize, 1) : 1;
    Tally tally;
    for (size_t i = 0; i < points.size(); i += stride) {
      if (i / stride % kWorlds != static_cast<size_t>(world)) continue;
      Try(
          &session, points[i].Name(), [&] { return session.Run(&points[i]); }, &tally);
    }
    printf(
        "%s, world %d: %zu calls, %zu failures, %d tried here, %d did not come about, %d wrong\n",
        mode.name, world, calls.size(), points.size(), tally.tried, tally.missed, tally.wrong);
    fflush(stdout);
    return StatusOf(tally);
  });
  printf("%s: %.0f s\n", mode.name, SecondsSince(start));
  fflush(stdout);
  return failed;
}

int RunModes(const std::vector<std::string>& arguments) {
  const bool is_sample = arguments[0] == "sample";
  size_t chosen = 0;
  int failed = 0;
  for (const fault::Mode& mode : fault::Modes()) {
    const bool is_chosen = arguments.size() < 2 || std::find(arguments.begin() + 1, arguments.end(),
                                                             mode.name) != arguments.end();
    if (!is_chosen) continue;
    ++chosen;
    failed += RunMatrix(mode, is_sample);
  }
  if (arguments.size() > 1 && chosen + 1 < arguments.size()) {
    fprintf(stderr, "faults: a mode that there is not\n");
    return 1;
  }
  return failed;
}

// --- Sudden ends -------------------------------------------------------------------------------

using KilledRun = std::string (fault::Session::*)(const fault::Point*, microseconds);

// Kills at every point, then at `count` moments of up to `longest` after the beginning.
int RunKills(const char* what, const char* mode, KilledRun run,
             bool (*is_wanted)(const fault::Call&), int count, microseconds longest) {
  const auto start = sim::Clock::now();
  const int failed = sim::RunInWorlds(kWorlds, [&](int world) {
    fault::Session session(ModeNamed(mode), RS232D_PATH, FAULT_LIBRARY_PATH);
    auto calls = is_wanted != nullptr ? session.Record() : session.RecordStart();
    if (is_wanted != nullptr) std::erase_if(calls, std::not_fn(is_wanted));
    Tally tally;
    for (size_t i = static_cast<size_t>(world); i < calls.size(); i += kWorlds) {
      const fault::Point point = {.call = calls[i], .error = FAULT_KILL};
      Try(
          &session, point.Name(), [&] { return (session.*run)(&point, microseconds(0)); }, &tally);
    }
    std::mt19937 random(static_cast<uint32_t>(world));
    for (int i = world; i < count; i += kWorlds) {
      const microseconds delay(1 + random() % static_cast<unsigned>(longest.count()));
      Try(
          &session, "SIGKILL after " + std::to_string(delay.count()) + " us",
          [&] { return (session.*run)(nullptr, delay); }, &tally);
    }
    printf("%s, world %d: %zu calls, %d kills here, %d wrong\n", what, world, calls.size(),
           tally.tried, tally.wrong);
    fflush(stdout);
    return StatusOf(tally);
  });
  printf("%s: %.0f s\n", what, SecondsSince(start));
  return failed;
}

bool IsOfSave(const fault::Call& call) {
  return call.subject.find("temp.conf") != std::string::npos ||
         call.subject.find("mfz.conf") != std::string::npos;
}

int RunAllKills(int count) {
  return RunKills("start", "relay", &fault::Session::RunKilledStart, nullptr, count,
                  microseconds(10'000)) +
         RunKills("save", "lens", &fault::Session::RunKilledSave, IsOfSave, count,
                  microseconds(60'000));
}

int Usage() {
  fprintf(stderr, "usage: faults matrix [MODE...] | sample MODE | kills [COUNT]\n");
  return kUsageStatus;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.empty()) return Usage();
  // What this process was started with must not reach the device programs.
  constexpr unsigned kFirst = 3;
  close_range(kFirst, ~0U, CLOSE_RANGE_CLOEXEC);
  int failed = 0;
  if (arguments[0] == "matrix" || arguments[0] == "sample") {
    failed = RunModes(arguments);
  } else if (arguments[0] == "kills") {
    constexpr int kKills = 500;
    failed = RunAllKills(arguments.size() > 1 ? atoi(argv[2]) : kKills);
  } else {
    return Usage();
  }
  return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
