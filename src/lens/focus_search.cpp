#include "lens/focus_search.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "lens/camera_query.h"
#include "lens/mfz_state.h"
#include "lens/motor.h"
#include "lens/position.h"
#include "relay/mode_pass.h"
#include "util/time_mark.h"

namespace {

struct FocusSearch {
  int16_t half_width;
  int16_t lower;
  int16_t upper;
  int16_t start_position;
  uint16_t best_value;
  int16_t best_position;
};

FocusSearch g_search = {};

// Starts `clock` once the move is on its way: what a question before the move took is none of
// the motor's time.
void MoveFocus(int16_t steps, TimeMark* clock) {
  mfz_move(MFZ_AXIS_FOCUS, steps);
  g_mfz.posFocus = PositionAfter(g_mfz.posFocus, steps);
  CUTIL_GetTime(clock);
}

// True when a move of `step` that began at `clock` has had its time and the motor is at rest. The
// first is cut to whole milliseconds, and says nothing of a move from before the search.
bool IsMoveOver(const TimeMark& clock, int16_t step) {
  return CUTIL_CheckTimeout(clock, MotorTimeMs(step, g_lens.DELAY_MS_NORMAL)) == 0 &&
         mfz_move_left_us(MFZ_AXIS_FOCUS) == 0;
}

int64_t MoveLeftUs(const TimeMark& clock, int16_t step) {
  constexpr int64_t kUsPerMs = 1000;
  const int64_t move_us = MotorTimeMs(step, g_lens.DELAY_MS_NORMAL) * kUsPerMs;
  const int64_t left_us =
      std::max(move_us - CUTIL_ElapsedUs(clock), mfz_move_left_us(MFZ_AXIS_FOCUS));
  return std::clamp<int64_t>(left_us, 0, MODE_PASS_PACE_US);
}

void Idle() {}

void Start() {
  const int32_t position = g_mfz.posFocus;
  g_search.lower =
      static_cast<int16_t>(std::max(position - g_search.half_width, g_mfz.focus_minimum));
  g_search.upper =
      static_cast<int16_t>(std::min(position + g_search.half_width, g_mfz.focus_maximum));
  g_search.start_position = g_mfz.posFocus;
  g_search.best_value = 0;
  g_search.best_position = 0;
  CUTIL_GetTime(&g_mfz.clock_a);
  g_mfz.af_state = AF_DESCEND;
}

// Ends when the lower end is reached, or less than a coarse step is left above 0.
void Descend() {
  const int16_t step = g_lens.profile.af_step_coarse;
  if (!IsMoveOver(g_mfz.clock_a, step)) return;
  if (g_search.lower < g_mfz.posFocus && g_mfz.posFocus >= step) {
    MoveFocus(static_cast<int16_t>(-step), &g_mfz.clock_a);
    return;
  }
  CUTIL_GetTime(&g_mfz.clock_b);
  g_mfz.af_state = AF_SCAN;
}

// Ends when the upper end has been measured.
void Scan() {
  const int16_t step = g_lens.profile.af_step_fine;
  if (!IsMoveOver(g_mfz.clock_b, step)) return;
  const uint16_t value = get_focus_value();
  if (g_search.best_value <= value) {
    g_search.best_value = value;
    g_search.best_position = g_mfz.posFocus;
  }
  if (g_search.upper > g_mfz.posFocus) {
    MoveFocus(step, &g_mfz.clock_b);
    return;
  }
  CUTIL_GetTime(&g_mfz.clock_c);
  g_mfz.af_state = AF_BACK_OFF;
}

void BackOff() {
  const int16_t step = g_lens.profile.af_step_fine;
  if (!IsMoveOver(g_mfz.clock_c, step)) return;
  if (g_mfz.posFocus > g_search.best_position - AF_BACK_OFF_STEPS * step) {
    MoveFocus(static_cast<int16_t>(-step), &g_mfz.clock_c);
    return;
  }
  CUTIL_GetTime(&g_mfz.clock_c);
  g_mfz.af_state = AF_APPROACH;
}

void Approach() {
  const int16_t step = g_lens.profile.af_step_finest;
  if (!IsMoveOver(g_mfz.clock_c, step)) return;
  if (g_mfz.posFocus < g_search.best_position) {
    MoveFocus(step, &g_mfz.clock_c);
    return;
  }
  g_mfz.af_state = AF_FINISH;
}

void Finish() {
  // One last question from where the search ended; the figure itself is not used.
  get_focus_value();
  printf("TRACE\t%4d\t%4d\tdiff=%4d\n", g_mfz.posZoom, g_search.best_position,
         g_search.best_position - g_search.start_position);
  printf("==================================\n");
  save_positions(g_mfz.posZoom, g_mfz.posFocus);
  g_mfz.af_state = AF_IDLE;
}

// Indexed by AfState.
constexpr std::array<void (*)(), AF_FINISH + 1> kStates = {Idle, Start,   Idle,     Idle,  Descend,
                                                           Scan, BackOff, Approach, Finish};

}  // namespace

void focus_search_step() {
  kStates[g_mfz.af_state]();
}

int64_t focus_search_wait_us() {
  const MfzProfile& profile = g_lens.profile;
  switch (g_mfz.af_state) {
    case AF_START:
    case AF_FINISH:
      return 0;
    case AF_DESCEND:
      return MoveLeftUs(g_mfz.clock_a, profile.af_step_coarse);
    case AF_SCAN:
      return MoveLeftUs(g_mfz.clock_b, profile.af_step_fine);
    case AF_BACK_OFF:
      return MoveLeftUs(g_mfz.clock_c, profile.af_step_fine);
    case AF_APPROACH:
      return MoveLeftUs(g_mfz.clock_c, profile.af_step_finest);
    default:
      return MODE_PASS_NO_WORK;
  }
}

void focus_search_start(int16_t half_width) {
  g_search.half_width = half_width;
  g_mfz.af_state = AF_START;
}

void focus_search_stop() {
  g_mfz.af_state = AF_IDLE;
}
