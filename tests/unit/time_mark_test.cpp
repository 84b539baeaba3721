#include "util/time_mark.h"

#include <gtest/gtest.h>

namespace {

constexpr int kYet = -1;
constexpr int kOver = 0;

TEST(TimeMark, ExpiresAfterTheLimitOrWhenTheClockGoesBack) {
  const struct {
    TimeMark mark, now;
    int limit_ms, result;
  } rows[] = {
      {{100, 5}, {100, 5}, 0, kOver},
      {{100, 5}, {100, 1004}, 1, kYet},
      {{100, 5}, {100, 1005}, 1, kOver},
      {{100, 999'999}, {101, 998}, 1, kYet},
      {{100, 999'999}, {101, 999}, 1, kOver},
      {{100, 5}, {100, 4}, 10'000, kOver},
      {{100, 5}, {99, 999'999}, 10'000, kOver},
      {{0x7FFFFFFF, 0}, {0x80000000, 0}, 1000, kOver},
      {{0x7FFFFFFF, 1}, {0x80000000, 0}, 1000, kYet},
      {{100, 0}, {4000, 0}, -1, kYet},
  };
  for (const auto& [mark, now, limit_ms, result] : rows) {
    EXPECT_EQ(CUTIL_CheckTimeoutAt(mark, now, limit_ms), result)
        << now.seconds << ' ' << now.microseconds << ' ' << limit_ms;
  }
}

TEST(TimeMark, ReadsBothClocksInTheirUnits) {
  TimeMark wall;
  CUTIL_GetTime(&wall);
  MonoTimeMark mono;
  CUTIL_GetTimeMono(&mono);
  wall.seconds -= 10;
  mono.seconds -= 10;
  for (const auto& [limit_ms, result] : {std::pair(10'000, kOver), {70'000, kYet}}) {
    EXPECT_EQ(CUTIL_CheckTimeout(wall, limit_ms), result);
    EXPECT_EQ(CUTIL_CheckTimeoutMono(mono, limit_ms), result);
  }
  EXPECT_NEAR(static_cast<double>(CUTIL_ElapsedUs(wall)), 40e6, 30e6);
  // For a mark in the future, only the fraction counts.
  wall = {.seconds = wall.seconds + 100, .microseconds = 999'999};
  EXPECT_NEAR(static_cast<double>(CUTIL_ElapsedUs(wall)), -5e5, 5e5);
}

}  // namespace
