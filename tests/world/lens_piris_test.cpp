#include "lens/piris.h"

#include <gtest/gtest.h>

#include <vector>

#include "lens/mfz_state.h"
#include "lens_line.h"

namespace {

// Exposure readings.
constexpr PirisReading kDark = {.level = 500, .deviation = 11};
constexpr PirisReading kBright = {.level = 500, .deviation = -11};
constexpr PirisReading kNearlyDark = {.level = 500, .deviation = 10};
constexpr PirisReading kNearlyBright = {.level = 500, .deviation = -10};
constexpr PirisReading kBrightFullLevel = {.level = 1024, .deviation = -11};

// Runs the regulator `count` times with the same reading. Each run must return `steps` and the
// exposure setting of the current state; the other members are the expected state afterwards.
struct Series {
  int count;
  PirisReading reading;
  int32_t steps, state, close, open;
};

TEST(PirisRegulate, Scenarios) {
  const struct {
    const char* name;
    PirisRegulator from;
    std::vector<Series> runs;
  } scenarios[] = {
      {"opens to the end and leaves it after as many bright figures in a row",
       {},
       {{1, kDark, 0, STM_IRIS_MOV, 0, 0},
        {24, kDark, 4, STM_IRIS_MOV, 0, 24},
        {1, kDark, 4, STM_IRIS_MAX, 0, 0},
        {40, kDark, 0, STM_IRIS_MAX, 0, 0},
        {24, kBrightFullLevel, 0, STM_IRIS_MAX, 24, 0},
        {1, kNearlyBright, 0, STM_IRIS_MAX, 0, 0},
        {24, kBrightFullLevel, 0, STM_IRIS_MAX, 24, 0},
        {1, kBrightFullLevel, 0, STM_IRIS_MOV, 0, 0},
        {1, kBright, -4, STM_IRIS_MOV, 1, 0}}},
      {"closes to the end and leaves it after as many dark figures in a row",
       {STM_IRIS_MOV, 0, 0},
       {{24, kBright, -4, STM_IRIS_MOV, 24, 0},
        {1, kBright, -4, STM_IRIS_MIN, 0, 0},
        {40, kBright, 0, STM_IRIS_MIN, 0, 0},
        {24, kDark, 0, STM_IRIS_MIN, 0, 24},
        {1, kNearlyDark, 0, STM_IRIS_MIN, 0, 0},
        {24, kDark, 0, STM_IRIS_MIN, 0, 24},
        {1, kDark, 0, STM_IRIS_MOV, 0, 0}}},
      {"one figure in the dead band begins the count anew",
       {STM_IRIS_MOV, 0, 0},
       {{24, kBright, -4, STM_IRIS_MOV, 24, 0},
        {1, kNearlyBright, 0, STM_IRIS_MOV, 0, 0},
        {24, kBright, -4, STM_IRIS_MOV, 24, 0},
        {1, kDark, 4, STM_IRIS_MOV, 0, 1},
        {1, kNearlyDark, 0, STM_IRIS_MOV, 0, 0},
        {3, kDark, 4, STM_IRIS_MOV, 0, 3},
        {1, kBright, -4, STM_IRIS_MOV, 1, 0}}},
      {"a high level at the open end neither counts nor clears",
       {STM_IRIS_MAX, 0, 0},
       {{200, {1025, -50}, 0, STM_IRIS_MAX, 0, 0},
        {20, kBright, 0, STM_IRIS_MAX, 20, 0},
        {7, {1025, 0}, 0, STM_IRIS_MAX, 20, 0},
        {5, kBright, 0, STM_IRIS_MOV, 0, 0}}},
  };
  for (const auto& scenario : scenarios) {
    SCOPED_TRACE(scenario.name);
    PirisRegulator regulator = scenario.from;
    for (const Series& run : scenario.runs) {
      for (int i = 0; i < run.count; ++i) {
        const bool is_open = regulator.state == STM_IRIS_MAX;
        const PirisOrder order = PirisRegulate(&regulator, run.reading);
        ASSERT_EQ(order.exposure, is_open ? PIRIS_EXPOSURE_OPEN : PIRIS_EXPOSURE_REGULATED) << i;
        ASSERT_EQ(order.steps, run.steps) << i;
      }
      EXPECT_EQ(regulator.state, run.state);
      EXPECT_EQ(regulator.close_count, run.close);
      EXPECT_EQ(regulator.open_count, run.open);
    }
  }
}

// The position is limited only at the open end, where the count starts.
TEST(Piris, MovesUntilReleased) {
  LensLine line;
  piris_claim();
  g_mfz.iris_position = 40;
  piris_open_full();
  EXPECT_EQ(g_mfz.iris_position, PIRIS_TRAVEL);
  EXPECT_EQ(line.TakeWrites().size(), 12U);
  piris_release();
  piris_close_half();
  EXPECT_TRUE(line.TakeWrites().empty());
}

}  // namespace
