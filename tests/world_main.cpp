// Runs the tests of this program in a private world on the virtual clock. Suites with RealTime in
// their name run in real time.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "sim/virtual_time.h"
#include "sim/world.h"

namespace {

class TimeOfTests : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& test) override {
    const VtimeControl* clock = sim::VirtualTime();
    if (clock == nullptr) return;
    if (strstr(test.test_suite_name(), "RealTime") != nullptr) {
      clock->stop();
    } else if (!clock->start(sim::kClockFile)) {
      abort();
    }
  }
};

int RunTests(char** argv) {
  sim::PreloadVirtualTime(argv);
  testing::UnitTest::GetInstance()->listeners().Append(new TimeOfTests);
  return RUN_ALL_TESTS();
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<char*> arguments(argv, argv + argc + 1);
  testing::InitGoogleTest(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  if (sim::VirtualTime() != nullptr) return RunTests(argv);  // in the world already
  return sim::RunInWorld([&arguments] { return RunTests(std::vector(arguments).data()); });
}
