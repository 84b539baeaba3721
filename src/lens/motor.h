// Zoom and focus motors: the lens in use, the step rate, moves and their timing.
//
// The micom does not say when a move is finished: whoever moves a motor waits for as long as the
// steps take at the rate that is set. Times are single precision and cut to whole units, never
// rounded. Lens loop's thread only.
#pragma once

#include <cstdint>

#include "lens/lens_profile.h"
#include "lens/mfz_state.h"

// A step is given this much longer than the rate says.
constexpr float MOTOR_TIME_MARGIN = 1.01F;
// Pause after a change of the step rate, milliseconds.
constexpr int MOTOR_SPEED_SETTLE_MS = 100;
// The micom's step timer at an offset of 0, and what one unit of the offset stands for.
constexpr int MOTOR_PRESCALER_BASE = 11000;
constexpr int MOTOR_PRESCALER_UNIT = 256;

// Milliseconds that a step takes at a rate, margin included.
float MotorStepDelayMs(MotorSpeedIndex speed);

// How long `steps` take at `delay_ms` a step, in whole milliseconds and microseconds.
int32_t MotorTimeMs(int32_t steps, float delay_ms);
int32_t MotorTimeUs(int32_t steps, float delay_ms);

// The 16-bit value that moves a motor by `steps`, counted the other way round for an inverted one.
constexpr uint16_t MoveValue(int32_t steps, bool inverted) {
  const uint32_t value = static_cast<uint32_t>(steps);
  return static_cast<uint16_t>((inverted ? 0U - value : value) & 0xFFFFU);
}

// Makes `profile`, which has to stay, the lens in use and prints its banner. Sends nothing.
void apply_lens_profile(const MfzProfile& profile);

// Sets the step rate on the micom, prints what the micom reports, and pauses. Blocks for up to
// the reply's two seconds and MOTOR_SPEED_SETTLE_MS. A micom that does not answer is reported
// and otherwise ignored.
void set_motor_speed(MotorSpeedIndex speed);

// Microseconds after which a motor has certainly made all steps of its last move: a step's time for
// each of them, from when the move was sent. 0 when it is at rest.
int64_t mfz_move_left_us(MfzAxis axis);

// Moves a motor by `steps`: one frame. Changes no position. The micom drops what is left of a
// move when the next one comes: a motor that may not be at rest is waited for.
void mfz_move(MfzAxis axis, int32_t steps);
