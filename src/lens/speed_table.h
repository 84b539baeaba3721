// The step rates of the zoom and focus motors.
#pragma once

#include <array>
#include <cstdint>

struct MotorSpeed {
  uint32_t code;    // value of I2M_ADDR_MOTOR_SPEED
  uint32_t pps;     // steps per second
  float period_ms;  // milliseconds per step; a fixed value, not 1000 / pps
  char name[20];
};

// Indexes of MOTOR_SPEEDS.
enum MotorSpeedIndex : int {
  MS_1082PPS,
  MS_793PPS,
  MS_625PPS,
  MS_515PPS,
  MS_438PPS,
  MS_COUNT,
};

inline constexpr std::array<MotorSpeed, MS_COUNT> MOTOR_SPEEDS = {{
    {0x00, 1082, 0.93F, "MS_1082PPS"},
    {0x10, 793, 1.27F, "MS_793PPS"},
    {0x20, 625, 1.60F, "MS_625PPS"},
    {0x30, 515, 1.94F, "MS_515PPS"},
    {0x40, 438, 2.28F, "MS_438PPS"},
}};
