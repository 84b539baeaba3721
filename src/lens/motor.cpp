#include "lens/motor.h"

#include <cstdio>

#include "lens/i2m.h"
#include "util/sleep.h"

namespace {

constexpr float kUsPerMs = 1000.0F;

// `sign` and `size` are the two value bytes of the micom's reply.
void PrintPrescaler(uint8_t sign, uint8_t size) {
  const bool negative = sign != 0;
  const int offset = size * MOTOR_PRESCALER_UNIT;
  printf("  prescaler = %d%c(%d*%d) = %d\n", MOTOR_PRESCALER_BASE, negative ? '-' : '+', size,
         MOTOR_PRESCALER_UNIT, MOTOR_PRESCALER_BASE + (negative ? -offset : offset));
}

}  // namespace

LensParameters g_lens = {};

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
  g_lens.profile = profile;
  g_lens.DELAY_MS_NORMAL = MotorStepDelayMs(profile.normal_speed);
  g_lens.DELAY_MS_RESET = MotorStepDelayMs(profile.reset_speed);
  printf("%s\n", profile.banner);
  printf("DELAY_MS_NORMAL=%5.2f\n", static_cast<double>(g_lens.DELAY_MS_NORMAL));
}

void set_motor_speed(MotorSpeedIndex speed) {
  const MotorSpeed& row = MOTOR_SPEEDS[static_cast<size_t>(speed)];
  printf("[MotorSpeed] %s. ", row.name);
  i2m_write(I2M_ADDR_MOTOR_SPEED, static_cast<uint16_t>(row.code & 0xFF));
  g_lens.step_delay_ms = MotorStepDelayMs(speed);
  i2m_request(I2M_ADDR_MOTOR_SPEED);
  I2mFrame reply;
  if (i2m_read_reply(&reply)) {
    PrintPrescaler(reply[I2M_HIGH_AT], reply[I2M_LOW_AT]);
  } else {
    printf("  no reply from mcu...\n");
  }
  CUTIL_SleepUs(MOTOR_SPEED_SETTLE_MS * INT64_C(1000));
}
