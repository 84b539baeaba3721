// Runs the tests of this program in a private world of their own.
#include <gtest/gtest.h>

#include "sim/world.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  return sim::RunInWorld([] { return RUN_ALL_TESTS(); });
}
