// What is particular to a lens: its curve, travels, directions, step rates and step sizes.
#pragma once

#include <cstdint>
#include <span>

#include "lens/speed_table.h"
#include "lens/tracking_tables.h"

// Distances are motor steps.
struct MfzProfile {
  const char* banner;                // printed when the profile is applied
  std::span<const ZfEntry> zftable;  // fewer than 2 entries: no tracking
  int32_t zoom_maximum;              // travel of the motor, at least; what a reset drives
  int32_t focus_maximum;             // likewise, and the upper limit of the focus
  bool zoom_inverted;                // the motor counts the other way round
  bool focus_inverted;
  MotorSpeedIndex normal_speed;
  MotorSpeedIndex reset_speed;  // while a reset drives
  bool af_after_zoom_stop;      // a focus search follows each zoom
  int32_t af_wait_ms;           // pause before it
  int16_t af_range;             // its half-width, and that of the search after a reset
  int16_t af_start_range;       // half-width of a search that was asked for
  int16_t af_step_coarse;       // step sizes of the search
  int16_t af_step_fine;
  int16_t af_step_finest;
  int32_t zoom_drive_step;  // a tick of the continuous drive, until a command sets another
  int32_t focus_drive_step;
};

extern const MfzProfile MFZ_PROFILE_KESTREL;
extern const MfzProfile MFZ_PROFILE_HERON;
extern const MfzProfile MFZ_PROFILE_OSPREY;
