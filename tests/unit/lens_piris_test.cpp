#include "lens/piris.h"

#include <gtest/gtest.h>

#include <vector>

#include "lens/mfz_state.h"
#include "lens_line.h"

namespace {

// Readings, and what each asks for.
constexpr PirisReading kDark = {.level = 500, .deviation = 11};
constexpr PirisReading kBright = {.level = 500, .deviation = -11};
constexpr PirisReading kNearlyDark = {.level = 500, .deviation = 10};
constexpr PirisReading kNearlyBright = {.level = 500, .deviation = -10};
constexpr PirisReading kBrightHighLevel = {.level = 1025, .deviation = -50};
constexpr PirisReading kFineHighLevel = {.level = 1025, .deviation = 0};
constexpr PirisReading kBrightFullLevel = {.level = 1024, .deviation = -11};

// `count` equal steps: each gives `order`; afterwards the machine is as `state`, `close` and
// `open` say.
struct Series {
  int count;
  PirisReading reading;
  PirisExposure exposure;
  int32_t steps, state, close, open;
};

TEST(PirisRegulate, Scenarios) {
  constexpr PirisExposure kRegulated = PIRIS_EXPOSURE_REGULATED;
  constexpr PirisExposure kOpen = PIRIS_EXPOSURE_OPEN;
  const struct {
    const char* name;
    PirisRegulator from;
    std::vector<Series> runs;
  } scenarios[] = {
      {"starts on its way without a step", {}, {{1, kDark, kRegulated, 0, STM_IRIS_MOV, 0, 0}}},
      {"opens to the end, then waits there",
       {STM_IRIS_MOV, 0, 0},
       {{24, kDark, kRegulated, 4, STM_IRIS_MOV, 0, 24},
        {1, kDark, kRegulated, 4, STM_IRIS_MAX, 0, 0},
        {40, kDark, kOpen, 0, STM_IRIS_MAX, 0, 0}}},
      {"closes to the end, then waits there",
       {STM_IRIS_MOV, 0, 0},
       {{24, kBright, kRegulated, -4, STM_IRIS_MOV, 24, 0},
        {1, kBright, kRegulated, -4, STM_IRIS_MIN, 0, 0},
        {40, kBright, kRegulated, 0, STM_IRIS_MIN, 0, 0}}},
      {"one figure in the dead band begins the count anew",
       {STM_IRIS_MOV, 0, 0},
       {{24, kBright, kRegulated, -4, STM_IRIS_MOV, 24, 0},
        {1, kNearlyBright, kRegulated, 0, STM_IRIS_MOV, 0, 0},
        {24, kBright, kRegulated, -4, STM_IRIS_MOV, 24, 0},
        {1, kDark, kRegulated, 4, STM_IRIS_MOV, 0, 1},
        {1, kNearlyDark, kRegulated, 0, STM_IRIS_MOV, 0, 0},
        {3, kDark, kRegulated, 4, STM_IRIS_MOV, 0, 3},
        {1, kBright, kRegulated, -4, STM_IRIS_MOV, 1, 0}}},
      {"leaves the closed end after as many dark figures in a row",
       {STM_IRIS_MIN, 0, 0},
       {{24, kDark, kRegulated, 0, STM_IRIS_MIN, 0, 24},
        {1, kNearlyDark, kRegulated, 0, STM_IRIS_MIN, 0, 0},
        {24, kDark, kRegulated, 0, STM_IRIS_MIN, 0, 24},
        {1, kDark, kRegulated, 0, STM_IRIS_MOV, 0, 0}}},
      {"leaves the open end after as many bright figures in a row",
       {STM_IRIS_MAX, 0, 0},
       {{24, kBrightFullLevel, kOpen, 0, STM_IRIS_MAX, 24, 0},
        {1, kNearlyBright, kOpen, 0, STM_IRIS_MAX, 0, 0},
        {24, kBrightFullLevel, kOpen, 0, STM_IRIS_MAX, 24, 0},
        {1, kBrightFullLevel, kOpen, 0, STM_IRIS_MOV, 0, 0},
        {1, kBright, kRegulated, -4, STM_IRIS_MOV, 1, 0}}},
      {"a high level at the open end neither counts nor clears",
       {STM_IRIS_MAX, 0, 0},
       {{200, kBrightHighLevel, kOpen, 0, STM_IRIS_MAX, 0, 0},
        {20, kBright, kOpen, 0, STM_IRIS_MAX, 20, 0},
        {7, kFineHighLevel, kOpen, 0, STM_IRIS_MAX, 20, 0},
        {4, kBright, kOpen, 0, STM_IRIS_MAX, 24, 0},
        {1, kBright, kOpen, 0, STM_IRIS_MOV, 0, 0}}},
  };
  for (const auto& scenario : scenarios) {
    SCOPED_TRACE(scenario.name);
    PirisRegulator regulator = scenario.from;
    for (const Series& run : scenario.runs) {
      for (int i = 0; i < run.count; ++i) {
        const PirisOrder order = PirisRegulate(&regulator, run.reading);
        ASSERT_EQ(order.exposure, run.exposure) << i;
        ASSERT_EQ(order.steps, run.steps) << i;
      }
      EXPECT_EQ(regulator.state, run.state);
      EXPECT_EQ(regulator.close_count, run.close);
      EXPECT_EQ(regulator.open_count, run.open);
    }
  }
}

// The travel is bounded at the open end only, where the count starts from.
TEST(Piris, MovesUntilItIsReleased) {
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
