// Properties of a lens: its curve, travel, directions, step rates and step sizes.
#pragma once

#include <cstdint>
#include <span>

#include "lens/speed_table.h"
#include "lens/tracking_tables.h"

// Distances are motor steps.
struct MfzProfile {
  const char* banner;                // printed when the profile is applied
  std::span<const ZfEntry> zftable;  // fewer than 2 entries: no tracking
  int32_t zoom_maximum;              // at least the motor's travel; length of a reset move
  int32_t focus_maximum;             // the same for the focus, and its upper limit
  bool zoom_inverted;                // the motor counts in the opposite direction
  bool focus_inverted;
  MotorSpeedIndex normal_speed;
  MotorSpeedIndex reset_speed;  // during a reset
  bool af_after_zoom_stop;      // a zoom stop starts a focus search
  int32_t af_wait_ms;           // pause before that search
  int16_t af_range;             // half-width of that search, and of the one after a reset
  int16_t af_start_range;       // half-width of a search that a command starts
  int16_t af_step_coarse;       // step sizes of the search
  int16_t af_step_fine;
  int16_t af_step_finest;
  int32_t zoom_drive_step;  // per tick of the drive, until a command changes it
  int32_t focus_drive_step;
};

extern const MfzProfile MFZ_PROFILE_KESTREL;
extern const MfzProfile MFZ_PROFILE_HERON;
extern const MfzProfile MFZ_PROFILE_OSPREY;
