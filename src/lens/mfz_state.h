// The lens mode's state: one record for the process.
//
// Its owner is the lens loop. What the P-iris worker shares with it is atomic; the worker's own
// fields are marked. Positions and limits are motor steps from the zero ends.
#pragma once

#include <atomic>
#include <cstdint>

#include "context/rs232_context.h"
#include "lens/i2m.h"
#include "lens/piris_regulator.h"
#include "util/time_mark.h"

// Values of g_focus_value_stream.
enum FocusValueStream : int32_t {
  FOCUS_STREAM_OFF = 0,
  FOCUS_STREAM_ENDED = 1,  // by a zoom command
  FOCUS_STREAM_ON = 2,     // the focus measure goes to the micom on every pass
};

struct MfzState {
  int32_t iris_position;  // worker: P-iris steps from closed
  Rs232Context context;   // as the mode was given it; not changed while the worker runs
  int32_t focus_maximum;
  int32_t focus_minimum;
  int32_t tracking_valid;  // 1: the focus can follow the zoom
  uint8_t af_state;        // an AfState
  int16_t posFocus;
  int16_t posZoom;
  uint8_t focus_req;  // a DriveRequest each
  uint8_t zoom_req;
  int32_t zoom_maximum;
  int32_t zoom_minimum;
  TimeMark clock_a;  // last step of the focus search: descending,
  TimeMark clock_b;  // scanning,
  TimeMark clock_c;  // backing off and approaching
  I2mParser parser;
  std::atomic<int32_t> piris_manual_req;  // set by the loop, cleared by the worker
  std::atomic<int32_t> piris_auto_req;
  int32_t exposure_in_force;                // worker: last exposure setting sent, 0 none yet
  PirisRegulator piris;                     // worker
  std::atomic<int32_t> g_sensor_supported;  // 0 switches the worker off
  std::atomic<int32_t> g_antiflk_enable;    // 1 regulates the iris, 0 holds it open
  int32_t g_focus_value_stream;             // a FocusValueStream
};

extern MfzState g_mfz;
