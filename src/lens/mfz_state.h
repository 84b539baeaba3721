// The lens mode's state: one record for the process, all of it.
//
// Whatever is changed is changed by one unit, which is named above it; everybody may read. All but
// the worker's part belongs to the lens loop's thread; what the two share is atomic. Positions,
// limits and steps are motor steps, positions and limits from the zero ends.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "context/rs232_context.h"
#include "lens/i2m.h"
#include "lens/lens_profile.h"
#include "lens/piris_regulator.h"
#include "util/time_mark.h"

// Values of g_af_mode, and of I2M_ADDR_AF_MODE: who drives zoom and focus.
enum AfMode : uint8_t {
  AF_MODE_MICOM = 0,
  AF_MODE_DAEMON = 1,
};

// Values of g_focus_value_stream.
enum FocusValueStream : int32_t {
  FOCUS_STREAM_OFF = 0,
  FOCUS_STREAM_ENDED = 1,  // by a zoom command
  FOCUS_STREAM_ON = 2,     // the focus measure goes to the micom on every pass
};

// Values of af_state. 2 and 3 are not used.
enum AfState : uint8_t {
  AF_IDLE = 0,
  AF_START = 1,
  AF_DESCEND = 4,
  AF_SCAN = 5,
  AF_BACK_OFF = 6,
  AF_APPROACH = 7,
  AF_FINISH = 8,
};

// Values of focus_req and zoom_req.
enum DriveRequest : uint8_t {
  DRIVE_IDLE = 0,
  DRIVE_STOP = 1,
  DRIVE_TOWARD_ZERO = 2,
  DRIVE_TOWARD_MAXIMUM = 3,
};

enum MfzAxis : int {
  MFZ_AXIS_FOCUS = 0,
  MFZ_AXIS_ZOOM = 1,
  MFZ_AXIS_COUNT,
};

// What a focus search knows.
struct FocusSearch {
  int16_t half_width;
  int16_t lower;
  int16_t upper;
  int16_t start_position;
  uint16_t best_value;
  int16_t best_position;
};

struct MfzState {
  // control
  CICOMM* command;  // the command channel; a worker that outlives the mode may still ask for it
  uint8_t g_af_mode = AF_MODE_DAEMON;
  int32_t g_focus_value_stream;  // a FocusValueStream

  // i2m_dispatch
  I2mParser parser;

  // motor
  const MfzProfile* profile;  // the lens in use
  float DELAY_MS_NORMAL;      // milliseconds a step at its normal speed
  float DELAY_MS_RESET;       // milliseconds a step at its reset speed
  float step_delay_ms;        // milliseconds a step at the rate that is set; 0 before the first
  // When each motor has certainly made the last step of its last move, microseconds of the
  // monotonic clock.
  std::array<int64_t, MFZ_AXIS_COUNT> move_end_us;

  // position
  int32_t focus_maximum;
  int32_t focus_minimum;
  int32_t zoom_maximum;
  int32_t zoom_minimum;
  int32_t tracking_valid;  // 1: the focus can follow the zoom
  int16_t posFocus;
  int16_t posZoom;

  // drive
  uint8_t focus_req;  // a DriveRequest each
  uint8_t zoom_req;
  int32_t zoom_drive_step;  // of a tick
  int32_t focus_drive_step;

  // focus_search
  uint8_t af_state;  // an AfState
  FocusSearch search;
  TimeMark clock_a;  // last step: descending,
  TimeMark clock_b;  // scanning,
  TimeMark clock_c;  // backing off and approaching

  // piris, by the loop; the worker clears the requests
  std::atomic<int32_t> piris_manual_req;
  std::atomic<int32_t> piris_auto_req;
  std::atomic<int32_t> g_sensor_supported;  // 0 switches the worker off
  std::atomic<int32_t> g_antiflk_enable;    // 1 regulates the iris, 0 holds it open
  // piris, by the worker
  int32_t iris_position;      // steps from closed
  int32_t exposure_in_force;  // last exposure setting sent, 0 none yet
  PirisRegulator piris;
};

extern MfzState g_mfz;
