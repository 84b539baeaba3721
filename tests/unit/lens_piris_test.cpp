#include "lens/piris.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "lens/mfz_state.h"
#include "lens_line.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

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
  int32_t steps;
  int32_t state;
  int32_t close;
  int32_t open;
};

struct Scenario {
  const char* name;
  PirisRegulator from;
  std::vector<Series> runs;
};

TEST(PirisRegulate, Scenarios) {
  constexpr PirisExposure kRegulated = PIRIS_EXPOSURE_REGULATED;
  constexpr PirisExposure kOpen = PIRIS_EXPOSURE_OPEN;
  const Scenario scenarios[] = {
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
  for (const Scenario& scenario : scenarios) {
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

class Piris : public testing::Test {
 protected:
  void SetUp() override {
    g_mfz.context = {};
    g_mfz.exposure_in_force = 0;
    g_mfz.piris_manual_req = 0;
    g_mfz.piris_auto_req = 0;
    g_mfz.g_sensor_supported = 1;
    g_mfz.g_antiflk_enable = 0;
    piris_claim();
    EXPECT_EQ(piris_start(), 0);
  }

  LensLine line_;
};

TEST_F(Piris, CoarseMovesArePacedAndBounded) {
  g_mfz.iris_position = 40;
  auto begin = steady_clock::now();
  piris_open_full();
  EXPECT_GE(steady_clock::now() - begin, milliseconds(12 * PIRIS_COARSE_PAUSE_MS));
  EXPECT_EQ(line_.TakeWrites(), std::vector<std::string>(12, "A5 40 0B 00 08 F8"));
  EXPECT_EQ(g_mfz.iris_position, 96);

  begin = steady_clock::now();
  piris_close_half();
  EXPECT_GE(steady_clock::now() - begin, milliseconds(6 * PIRIS_COARSE_PAUSE_MS));
  EXPECT_EQ(line_.TakeWrites(), std::vector<std::string>(6, "A5 40 0B FF F8 E7"));
  EXPECT_EQ(g_mfz.iris_position, 48);
}

TEST_F(Piris, ReleasedWorkerSendsNothing) {
  piris_release();
  piris_close_half();
  EXPECT_TRUE(line_.TakeWrites().empty());
}

TEST_F(Piris, ManualRequestIsServedOnce) {
  g_mfz.piris_manual_req = 1;
  testing::internal::CaptureStdout();
  EXPECT_EQ(piris_step(), 0);
  EXPECT_EQ(piris_step(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "<<piris_manual_req>>\n");
  EXPECT_EQ(line_.TakeWrites().size(), 12U);
  EXPECT_EQ(g_mfz.piris_manual_req, 0);
  EXPECT_EQ(g_mfz.exposure_in_force, 363329);
}

TEST_F(Piris, UnsupportedSensorServesNothing) {
  g_mfz.g_sensor_supported = 0;
  g_mfz.piris_manual_req = 1;
  g_mfz.piris_auto_req = 1;
  for (const int32_t antiflicker : {0, 1}) {
    g_mfz.g_antiflk_enable = antiflicker;
    EXPECT_EQ(piris_step(), 0);
  }
  EXPECT_TRUE(line_.TakeWrites().empty());
  EXPECT_EQ(g_mfz.piris_manual_req, 1);
  EXPECT_EQ(g_mfz.piris_auto_req, 1);
}

}  // namespace
