#include "bench/statistics.h"

#include <gtest/gtest.h>

#include <numeric>

namespace bench {
namespace {

TEST(Statistics, MedianIsTheMiddleWhateverTheOrder) {
  EXPECT_EQ(Median({7}), 7);
  EXPECT_EQ(Median({9, 1, 5}), 5);
  EXPECT_EQ(Median({4, 1, 3, 2}), 2.5);
}

TEST(Statistics, PercentileIsASampleThatEnoughDoNotExceed) {
  std::vector<double> hundred(100);
  std::iota(hundred.rbegin(), hundred.rend(), 1);
  for (const double percent : {1, 50, 99, 100})
    EXPECT_EQ(Percentile(hundred, percent), percent);
  EXPECT_EQ(Percentile(hundred, 99.5), 100);
  EXPECT_EQ(Percentile({1, 2}, 50), 1);
  EXPECT_EQ(Percentile({1, 2}, 51), 2);
}

TEST(Statistics, SpreadIsAShareOfTheMedian) {
  EXPECT_EQ(Spread({5}), 0);
  EXPECT_EQ(Spread({0, 0, 0}), 0);
  EXPECT_DOUBLE_EQ(Spread({12, 8, 9, 11, 10}), 0.1);
}

}  // namespace
}  // namespace bench
