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

// Starts `clock` after the frame was sent: the time of a query before the move does not count as
// move time.
void MoveFocus(int16_t steps, TimeMark* clock) {
  move_lens(MFZ_AXIS_FOCUS, steps);
  CUTIL_GetTime(clock);
}

// Returns true if the time of a move of `step`, begun at `clock`, has passed and the motor is at
// rest. The first test alone is not enough: it is truncated to milliseconds and does not cover a
// move from before the search.
bool IsMoveOver(const TimeMark& clock, int16_t step) {
  return CUTIL_CheckTimeout(clock, MotorTimeMs(step, g_mfz.DELAY_MS_NORMAL)) == 0 &&
         mfz_move_left_us(MFZ_AXIS_FOCUS) == 0;
}

int64_t MoveLeftUs(const TimeMark& clock, int16_t step) {
  constexpr int64_t kUsPerMs = 1000;
  const int64_t move_us = MotorTimeMs(step, g_mfz.DELAY_MS_NORMAL) * kUsPerMs;
  const int64_t left_us =
      std::max(move_us - CUTIL_ElapsedUs(clock), mfz_move_left_us(MFZ_AXIS_FOCUS));
  return std::clamp<int64_t>(left_us, 0, MODE_PASS_PACE_US);
}

void Start() {
  const int32_t position = g_mfz.posFocus;
  g_mfz.search.lower =
      static_cast<int16_t>(std::max(position - g_mfz.search.half_width, g_mfz.focus_minimum));
  g_mfz.search.upper =
      static_cast<int16_t>(std::min(position + g_mfz.search.half_width, g_mfz.focus_maximum));
  g_mfz.search.start_position = g_mfz.posFocus;
  g_mfz.search.best_value = 0;
  g_mfz.search.best_position = 0;
  CUTIL_GetTime(&g_mfz.clock_a);
  g_mfz.af_state = AF_DESCEND;
}

// Done once the lower end is reached or the position is less than one coarse step above 0.
void Descend() {
  const int16_t step = g_mfz.profile->af_step_coarse;
  if (g_mfz.search.lower < g_mfz.posFocus && g_mfz.posFocus >= step) {
    MoveFocus(static_cast<int16_t>(-step), &g_mfz.clock_a);
    return;
  }
  CUTIL_GetTime(&g_mfz.clock_b);
  g_mfz.af_state = AF_SCAN;
}

// Done once the upper end has been measured.
void Scan() {
  const int16_t step = g_mfz.profile->af_step_fine;
  const uint16_t value = get_focus_value();
  if (g_mfz.search.best_value <= value) {
    g_mfz.search.best_value = value;
    g_mfz.search.best_position = g_mfz.posFocus;
  }
  if (g_mfz.search.upper > g_mfz.posFocus) {
    MoveFocus(step, &g_mfz.clock_b);
    return;
  }
  CUTIL_GetTime(&g_mfz.clock_c);
  g_mfz.af_state = AF_BACK_OFF;
}

void BackOff() {
  const int16_t step = g_mfz.profile->af_step_fine;
  if (g_mfz.posFocus > g_mfz.search.best_position - AF_BACK_OFF_STEPS * step) {
    MoveFocus(static_cast<int16_t>(-step), &g_mfz.clock_c);
    return;
  }
  CUTIL_GetTime(&g_mfz.clock_c);
  g_mfz.af_state = AF_APPROACH;
}

void Approach() {
  const int16_t step = g_mfz.profile->af_step_finest;
  if (g_mfz.posFocus < g_mfz.search.best_position) {
    MoveFocus(step, &g_mfz.clock_c);
    return;
  }
  g_mfz.af_state = AF_FINISH;
}

void Finish() {
  // Queries the measure once more at the final position; the value is not used.
  get_focus_value();
  printf("TRACE\t%4d\t%4d\tdiff=%4d\n", g_mfz.posZoom, g_mfz.search.best_position,
         g_mfz.search.best_position - g_mfz.search.start_position);
  printf("==================================\n");
  save_positions(g_mfz.posZoom, g_mfz.posFocus);
  g_mfz.af_state = AF_IDLE;
}

// A state and its action. The action runs once the time of `steps` steps has passed since `clock`;
// a state without a clock acts at once.
struct StateRow {
  AfState state;
  void (*act)();
  TimeMark MfzState::*clock;
  int16_t MfzProfile::*steps;
};

// All other states have nothing to do.
constexpr std::array<StateRow, 6> kStates = {{
    {AF_START, Start, nullptr, nullptr},
    {AF_DESCEND, Descend, &MfzState::clock_a, &MfzProfile::af_step_coarse},
    {AF_SCAN, Scan, &MfzState::clock_b, &MfzProfile::af_step_fine},
    {AF_BACK_OFF, BackOff, &MfzState::clock_c, &MfzProfile::af_step_fine},
    {AF_APPROACH, Approach, &MfzState::clock_c, &MfzProfile::af_step_finest},
    {AF_FINISH, Finish, nullptr, nullptr},
}};

// Returns null if there is nothing to do.
const StateRow* PresentState() {
  const auto* row = std::find_if(kStates.begin(), kStates.end(),
                                 [](const StateRow& r) { return r.state == g_mfz.af_state; });
  return row != kStates.end() ? row : nullptr;
}

}  // namespace

void focus_search_step() {
  const StateRow* row = PresentState();
  if (row == nullptr) return;
  if (row->clock != nullptr && !IsMoveOver(g_mfz.*row->clock, g_mfz.profile->*row->steps)) return;
  row->act();
}

int64_t focus_search_wait_us() {
  const StateRow* row = PresentState();
  if (row == nullptr) return MODE_PASS_NO_WORK;
  return row->clock == nullptr ? 0 : MoveLeftUs(g_mfz.*row->clock, g_mfz.profile->*row->steps);
}

void focus_search_init() {
  CUTIL_GetTime(&g_mfz.clock_a);
}

void focus_search_start(int16_t half_width) {
  g_mfz.search.half_width = half_width;
  g_mfz.af_state = AF_START;
}

void focus_search_stop() {
  g_mfz.af_state = AF_IDLE;
}
