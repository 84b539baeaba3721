// Step rate and step timing of the zoom and focus motors, and the lens in use.
//
// The micom does not say when a move is finished: whoever moves a motor waits for as long as the
// steps take at the rate that is set. Times are single precision and cut to whole units, never
// rounded. Lens loop's thread only.
#pragma once

#include <cstdint>

#include "lens/lens_profile.h"

// A step is given this much longer than the rate says.
constexpr float MOTOR_TIME_MARGIN = 1.01F;
// Pause after a change of the step rate, milliseconds.
constexpr int MOTOR_SPEED_SETTLE_MS = 100;
// The micom's step timer at an offset of 0, and what one unit of the offset stands for.
constexpr int MOTOR_PRESCALER_BASE = 11000;
constexpr int MOTOR_PRESCALER_UNIT = 256;

// The lens in use. Written by apply_lens_profile; the two drive steps also by the drive, the
// present rate by set_motor_speed.
struct LensParameters {
  MfzProfile profile;
  float DELAY_MS_NORMAL;  // milliseconds a step at the normal speed
  float DELAY_MS_RESET;   // milliseconds a step at the reset speed
  float step_delay_ms;    // milliseconds a step at the rate that is set; 0 before the first
};

extern LensParameters g_lens;

// Milliseconds that a step takes at a rate, margin included.
float MotorStepDelayMs(MotorSpeedIndex speed);

// How long `steps` take at `delay_ms` a step, in whole milliseconds and microseconds.
int32_t MotorTimeMs(int32_t steps, float delay_ms);
int32_t MotorTimeUs(int32_t steps, float delay_ms);

// Makes `profile` the lens in use and prints its banner. Sends nothing.
void apply_lens_profile(const MfzProfile& profile);

// Sets the step rate on the micom, prints what the micom reports, and pauses. Blocks for up to
// the reply's two seconds and MOTOR_SPEED_SETTLE_MS. A micom that does not answer is reported
// and otherwise ignored.
void set_motor_speed(MotorSpeedIndex speed);
