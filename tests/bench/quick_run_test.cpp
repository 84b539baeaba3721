// The benchmark itself, in its quickest form.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "bench/results.h"
#include "sim/device.h"

namespace {

TEST(SerialBench, QuickRunLeavesResultsThatCanBeReadBack) {
  const auto directory =
      std::filesystem::path(testing::TempDir()) / ("serial_bench." + std::to_string(getpid()));
  std::filesystem::create_directories(directory);
  const std::string json = directory / "bench.json";
  const std::string svg = directory / "bench.svg";
  const std::string command =
      std::string(SERIAL_BENCH_PATH) + " --quick --json " + json + " --svg " + svg + " >/dev/null";
  ASSERT_EQ(system(command.c_str()), 0);
  const bench::Results results = bench::FromJson(sim::ReadTextFile(json));
  EXPECT_NE(sim::ReadTextFile(svg).find("</svg>"), std::string::npos);
  // Whatever peers there are, these two are built here and can do everything asked of them.
  for (const char* figure :
       {"start", "size", "latency.to_line.1.p50", "latency.to_all.10.p99", "bulk.to_line.256b.rate",
        "bulk.to_client.10.cpu", "line.10.cpu", "idle.10.wakeups", "memory.bulk.anonymous"}) {
    for (const char* entrant : {"rs232d", "minimal"}) {
      const bench::Cell* cell = results.Find(figure, entrant);
      ASSERT_NE(cell, nullptr) << figure << " " << entrant;
      EXPECT_TRUE(cell->HasValue()) << figure << " " << entrant << ": " << cell->reason;
    }
  }
  std::filesystem::remove_all(directory);
}

}  // namespace
