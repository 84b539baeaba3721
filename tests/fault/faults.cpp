// faults: makes every call of the daemon fail, one after the other.
//
//   faults matrix [MODE...]   every failure of every mode, or of those named
//   faults sample MODE        a few dozen of them
//   faults kills [COUNT]      SIGKILL at every call of a start, then at COUNT random moments
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <map>
#include <string>
#include <vector>

#include "sim/world.h"
#include "tests/fault/fault_plan.h"
#include "tests/fault/session.h"

namespace {

constexpr int kWorlds = 2;
// Every so many points of the matrix are in a sample.
constexpr size_t kSampleSize = 16;

double SecondsSince(sim::Clock::time_point start) {
  return std::chrono::duration<double>(sim::Clock::now() - start).count();
}

struct Tally {
  int tried = 0;
  int missed = 0;
  int wrong = 0;
};

// Tries a point. One that failed, or that did not come about, is tried once more: the machine may
// have stalled, and the calls of two threads do not always come in the same order.
void Try(fault::Session* session, const fault::Point& point, Tally* tally) {
  ++tally->tried;
  std::string wrong;
  bool was_hit = false;
  for (int attempt = 0; attempt < 2; ++attempt) {
    wrong = session->Run(&point);
    was_hit = session->WasHit();
    if (wrong.empty() && was_hit) return;
  }
  if (!was_hit) ++tally->missed;
  if (wrong.empty()) return;
  ++tally->wrong;
  printf("%s\n%s", point.Name().c_str(), wrong.c_str());
}

int RunMatrix(const fault::Mode& mode, bool is_sample) {
  const auto start = sim::Clock::now();
  const int failed = sim::RunInWorlds(kWorlds, [&](int world) {
    fault::Session session(mode, RS232D_PATH, FAULT_LIBRARY_PATH);
    const auto calls = session.Record();
    const auto points = fault::PlanMatrix(calls);
    if (const std::string wrong = session.Run(nullptr); !wrong.empty()) {
      printf("without a failure:\n%s", wrong.c_str());
      return EXIT_FAILURE;
    }
    const size_t stride = is_sample ? std::max<size_t>(points.size() / kSampleSize, 1) : 1;
    Tally tally;
    for (size_t i = 0; i < points.size(); i += stride) {
      if (i / stride % kWorlds == static_cast<size_t>(world)) Try(&session, points[i], &tally);
      fflush(stdout);
    }
    printf("%s, world %d: %zu calls, %zu failures, %d tried, %d did not come about, %d wrong\n",
           mode.name, world, calls.size(), points.size(), tally.tried, tally.missed, tally.wrong);
    return tally.wrong == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
  });
  printf("%s: %.0f s\n", mode.name, SecondsSince(start));
  fflush(stdout);
  return failed;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  const bool is_sample = !arguments.empty() && arguments[0] == "sample";
  int failed = 0;
  for (const fault::Mode& mode : fault::Modes()) {
    const bool is_chosen = arguments.size() < 2 || std::find(arguments.begin() + 1, arguments.end(),
                                                             mode.name) != arguments.end();
    if (is_chosen) failed += RunMatrix(mode, is_sample);
  }
  return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
