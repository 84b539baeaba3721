#include "tests/soak/report.h"

#include <array>
#include <cstdio>

namespace soak {
namespace {

struct Row {
  const char* what;
  long Counters::*counter;
};

constexpr std::array<Row, 23> kRows = {{
    {"records, line to clients", &Counters::line_to_clients},
    {"records, line to datagrams", &Counters::line_to_data},
    {"records, clients to line", &Counters::clients_to_line},
    {"records, datagrams to line", &Counters::datagrams_to_line},
    {"frames of commands", &Counters::frames},
    {"clients connected", &Counters::connected},
    {"  left in order", &Counters::left},
    {"  reset", &Counters::reset},
    {"  refused beyond ten", &Counters::refused},
    {"  dropped, stopped reading", &Counters::stopped},
    {"hostile datagrams", &Counters::hostile},
    {"ends in order", &Counters::ends},
    {"kills", &Counters::kills},
    {"line losses", &Counters::line_losses},
    {"clock jumps", &Counters::clock_jumps},
    {"still points", &Counters::still_points},
    {"lens where it should be", &Counters::lens_checks},
    {"  unjudged after a pause", &Counters::lens_unjudged},
    {"anonymous KiB, first", &Counters::memory_first},
    {"anonymous KiB, end", &Counters::memory_end},
    {"descriptors, first", &Counters::descriptors_first},
    {"descriptors, end", &Counters::descriptors_end},
    {"violations", &Counters::violations},
}};

// Violations that are printed.
constexpr long kMostLines = 50;

}  // namespace

void PrintTable(const Column* columns, size_t count) {
  printf("%-28s", "");
  for (size_t i = 0; i < count; ++i)
    printf("%12s", columns[i].mode);
  for (const Row& row : kRows) {
    printf("\n%-28s", row.what);
    for (size_t i = 0; i < count; ++i)
      printf("%12ld", columns[i].counters->*row.counter);
  }
  printf("\n");
}

void Report::Violation(const std::string& what, const std::string& expected,
                       const std::string& came) {
  if (++counters_->violations > kMostLines) return;
  const std::chrono::duration<double> passed = sim::Clock::now() - start_;
  printf("VIOLATION at %.3f s, %s, seed %u: %s: expected %s, came %s\n", passed.count(), mode_,
         seed_, what.c_str(), expected.c_str(), came.c_str());
  fflush(stdout);
}

}  // namespace soak
