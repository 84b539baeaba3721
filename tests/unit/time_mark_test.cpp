#include "util/time_mark.h"

#include <gtest/gtest.h>

namespace {

constexpr int kYet = -1;
constexpr int kOver = 0;

TEST(TimeMark, LimitIsOverOnceItHasPassedOrTheClockWentBack) {
  const struct {
    const char* legend;
    TimeMark mark;
    TimeMark now;
    int limit_ms;
    int result;
  } rows[] = {
      {"same moment", {100, 5}, {100, 5}, 1, kYet},
      {"no limit", {100, 5}, {100, 5}, 0, kOver},
      {"one short within a second", {100, 5}, {100, 1004}, 1, kYet},
      {"exact within a second", {100, 5}, {100, 1005}, 1, kOver},
      {"one short across a second", {100, 999'999}, {101, 998}, 1, kYet},
      {"exact across a second", {100, 999'999}, {101, 999}, 1, kOver},
      {"a day of a day", {100, 0}, {86'500, 0}, 86'400'000, kOver},
      {"a day but a second", {100, 0}, {86'499, 0}, 86'400'000, kYet},
      {"back within the second", {100, 5}, {100, 4}, 10'000, kOver},
      {"back to an earlier second", {100, 5}, {99, 999'999}, 10'000, kOver},
      {"past the sign bit of the seconds", {0x7FFFFFFF, 0}, {0x80000000, 0}, 1000, kOver},
      {"before it is past the sign bit", {0x7FFFFFFF, 1}, {0x80000000, 0}, 1000, kYet},
      {"negative limit", {100, 0}, {4000, 0}, -1, kYet},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(CUTIL_CheckTimeoutAt(row.mark, row.now, row.limit_ms), row.result) << row.legend;
  }
}

TEST(TimeMark, ClocksAreReadInTheirOwnUnits) {
  TimeMark wall;
  ASSERT_EQ(CUTIL_GetTime(&wall), 0);
  MonoTimeMark mono;
  ASSERT_EQ(CUTIL_GetTimeMono(&mono), 0);
  wall.seconds -= 10;
  mono.seconds -= 10;

  EXPECT_EQ(CUTIL_CheckTimeout(wall, 10'000), kOver);
  EXPECT_EQ(CUTIL_CheckTimeout(wall, 70'000), kYet);
  EXPECT_EQ(CUTIL_CheckTimeoutMono(mono, 10'000), kOver);
  EXPECT_EQ(CUTIL_CheckTimeoutMono(mono, 70'000), kYet);
  EXPECT_GE(CUTIL_ElapsedUs(wall), 10'000'000);
  EXPECT_LT(CUTIL_ElapsedUs(wall), 70'000'000);
}

TEST(TimeMark, ElapsedTimeOfAFutureMarkIsTheFractionAlone) {
  TimeMark mark;
  CUTIL_GetTime(&mark);
  mark.seconds += 100;
  mark.microseconds = 999'999;
  EXPECT_LE(CUTIL_ElapsedUs(mark), 0);
  EXPECT_GE(CUTIL_ElapsedUs(mark), -999'999);
}

}  // namespace
