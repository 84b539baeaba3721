// Zoom and focus motors: the lens in use, the step rate, moves and their timing.
//
// The micom does not report the end of a move, so the caller waits for the time that the steps take
// at the current rate. Times are computed in single precision and truncated to whole units, never
// rounded. Lens loop's thread only.
#pragma once

#include <cstdint>

#include "lens/lens_profile.h"
#include "lens/mfz_state.h"

// Safety factor on the time of a step.
constexpr float MOTOR_TIME_MARGIN = 1.01F;
// Pause after a change of the step rate, milliseconds.
constexpr int MOTOR_SPEED_SETTLE_MS = 100;
// Prescaler of the micom's step timer at offset 0, and its change per unit of the offset.
constexpr int MOTOR_PRESCALER_BASE = 11000;
constexpr int MOTOR_PRESCALER_UNIT = 256;

// Returns the milliseconds per step at `speed`, margin included.
float MotorStepDelayMs(MotorSpeedIndex speed);

// Return the time of `steps` at `delay_ms` per step, truncated to milliseconds or microseconds.
int32_t MotorTimeMs(int32_t steps, float delay_ms);
int32_t MotorTimeUs(int32_t steps, float delay_ms);

// Returns the 16-bit register value that moves a motor by `steps`; negates it if `inverted`.
constexpr uint16_t MoveValue(int32_t steps, bool inverted) {
  const uint32_t value = static_cast<uint32_t>(steps);
  return static_cast<uint16_t>((inverted ? 0U - value : value) & 0xFFFFU);
}

// Selects `profile` as the lens in use and prints its banner. `profile` must outlive the mode.
// Sends nothing.
void apply_lens_profile(const MfzProfile& profile);

// Sets the step rate on the micom, prints the micom's reply, and pauses. Blocks for up to two
// seconds (the reply) and MOTOR_SPEED_SETTLE_MS. A missing reply is printed and otherwise ignored.
void set_motor_speed(MotorSpeedIndex speed);

// Returns the microseconds until the motor has certainly completed its last move: the time of all
// its steps, counted from the moment at which the frame was sent. Returns 0 if the motor is at
// rest.
int64_t mfz_move_left_us(MfzAxis axis);

// Moves a motor by `steps` with one frame. Does not change the stored position. Blocks first until
// the motor's previous move has ended, because the micom drops the rest of a move when the next one
// arrives.
void mfz_move(MfzAxis axis, int32_t steps);
