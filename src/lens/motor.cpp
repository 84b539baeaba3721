#include "lens/motor.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "lens/i2m.h"
#include "util/sleep.h"
#include "util/time_mark.h"

namespace {

constexpr float kUsPerMs = 1000.0F;

// `sign` and `size` are the two value bytes of the micom's reply.
void PrintPrescaler(uint8_t sign, uint8_t size) {
  const bool negative = sign != 0;
  const int offset = size * MOTOR_PRESCALER_UNIT;
  printf("  prescaler = %d%c(%d*%d) = %d\n", MOTOR_PRESCALER_BASE, negative ? '-' : '+', size,
         MOTOR_PRESCALER_UNIT, MOTOR_PRESCALER_BASE + (negative ? -offset : offset));
}

int64_t* MoveEndUs(MfzAxis axis) {
  return &g_mfz.move_end_us[static_cast<size_t>(axis)];
}

// Some micoms make the first step at once, others one step time after the frame; the other steps
// follow at the current rate. This allows for the later case.
void NoteMove(MfzAxis axis, int32_t steps) {
  *MoveEndUs(axis) = CUTIL_MonotonicUs() + MotorTimeUs(abs(steps), g_mfz.step_delay_ms);
}

}  // namespace

float MotorStepDelayMs(MotorSpeedIndex speed) {
  return MOTOR_SPEEDS[static_cast<size_t>(speed)].period_ms * MOTOR_TIME_MARGIN;
}

int32_t MotorTimeMs(int32_t steps, float delay_ms) {
  return static_cast<int32_t>(static_cast<float>(steps) * delay_ms);
}

int32_t MotorTimeUs(int32_t steps, float delay_ms) {
  return static_cast<int32_t>(static_cast<float>(steps) * delay_ms * kUsPerMs);
}

void apply_lens_profile(const MfzProfile& profile) {
  g_mfz.profile = &profile;
  g_mfz.DELAY_MS_NORMAL = MotorStepDelayMs(profile.normal_speed);
  g_mfz.DELAY_MS_RESET = MotorStepDelayMs(profile.reset_speed);
  printf("%s\n", profile.banner);
  printf("DELAY_MS_NORMAL=%5.2f\n", static_cast<double>(g_mfz.DELAY_MS_NORMAL));
}

void set_motor_speed(MotorSpeedIndex speed) {
  const MotorSpeed& row = MOTOR_SPEEDS[static_cast<size_t>(speed)];
  printf("[MotorSpeed] %s. ", row.name);
  i2m_write(I2M_ADDR_MOTOR_SPEED, static_cast<uint16_t>(row.code & 0xFF));
  g_mfz.step_delay_ms = MotorStepDelayMs(speed);
  i2m_request(I2M_ADDR_MOTOR_SPEED);
  I2mFrame reply;
  if (i2m_read_reply(&reply)) {
    PrintPrescaler(reply[I2M_HIGH_AT], reply[I2M_LOW_AT]);
  } else {
    printf("  no reply from mcu...\n");
  }
  CUTIL_SleepUs(MOTOR_SPEED_SETTLE_MS * INT64_C(1000));
}

int64_t mfz_move_left_us(MfzAxis axis) {
  return std::max<int64_t>(*MoveEndUs(axis) - CUTIL_MonotonicUs(), 0);
}

void mfz_move(MfzAxis axis, int32_t steps) {
  if (const int64_t left_us = mfz_move_left_us(axis); left_us > 0) CUTIL_SleepUs(left_us);
  if (axis == MFZ_AXIS_ZOOM) {
    i2m_write(I2M_ADDR_ZOOM_MOVE, MoveValue(steps, g_mfz.profile->zoom_inverted));
  } else {
    i2m_write(I2M_ADDR_FOCUS_MOVE, MoveValue(steps, g_mfz.profile->focus_inverted));
  }
  NoteMove(axis, steps);
}
