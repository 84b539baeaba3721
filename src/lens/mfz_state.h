// The lens mode's state: a single record for the whole process.
//
// Each group of members is modified only by the unit named above it; all units may read it. The
// lens loop's thread owns everything except the worker's group; members shared by both threads are
// atomic. Positions, limits and steps are motor steps; positions and limits count from the zero
// ends.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "context/rs232_context.h"
#include "lens/i2m.h"
#include "lens/lens_profile.h"
#include "lens/piris_regulator.h"
#include "util/time_mark.h"

// Values of g_af_mode and of I2M_ADDR_AF_MODE: who drives zoom and focus.
enum AfMode : uint8_t {
  AF_MODE_MICOM = 0,
  AF_MODE_DAEMON = 1,
};

// Values of g_focus_value_stream.
enum FocusValueStream : int32_t {
  FOCUS_STREAM_OFF = 0,
  FOCUS_STREAM_ENDED = 1,  // ended by a zoom command
  FOCUS_STREAM_ON = 2,     // each pass sends the focus measure to the micom
};

// Values of af_state. 2 and 3 are unused.
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

// Data of a focus search.
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
  CICOMM* command;  // the command channel; a worker that outlives the mode may still read it
  uint8_t g_af_mode = AF_MODE_DAEMON;
  int32_t g_focus_value_stream;  // a FocusValueStream

  // i2m_dispatch
  I2mParser parser;

  // motor
  const MfzProfile* profile;  // the lens in use
  float DELAY_MS_NORMAL;      // milliseconds per step at its normal speed
  float DELAY_MS_RESET;       // milliseconds per step at its reset speed
  float step_delay_ms;        // milliseconds per step at the current rate; 0 until one is set
  // Monotonic time in microseconds by which each motor has made all steps of its last move.
  std::array<int64_t, MFZ_AXIS_COUNT> move_end_us;

  // position
  int32_t focus_maximum;
  int32_t focus_minimum;
  int32_t zoom_maximum;
  int32_t zoom_minimum;
  int32_t tracking_valid;  // 1: the focus can follow the zoom curve
  int16_t posFocus;
  int16_t posZoom;

  // drive
  uint8_t focus_req;  // a DriveRequest, like zoom_req
  uint8_t zoom_req;
  int32_t zoom_drive_step;  // steps per tick
  int32_t focus_drive_step;

  // focus_search
  uint8_t af_state;  // an AfState
  FocusSearch search;
  TimeMark clock_a;  // start of the last move while descending
  TimeMark clock_b;  // while scanning
  TimeMark clock_c;  // while backing off and approaching

  // piris, on the loop's thread; the worker clears the requests
  std::atomic<int32_t> piris_manual_req;
  std::atomic<int32_t> piris_auto_req;
  std::atomic<int32_t> g_sensor_supported;  // 0: the worker does nothing
  std::atomic<int32_t> g_antiflk_enable;    // 1: regulate the iris, 0: hold it open
  // piris, on the worker's thread
  int32_t iris_position;      // steps from closed; counts the coarse moves only
  int32_t exposure_in_force;  // last exposure setting sent, 0 if none
  PirisRegulator piris;
};

extern MfzState g_mfz;
