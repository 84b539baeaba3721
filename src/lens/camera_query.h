// Questions to the camera daemon about the image, over the command channel.
//
// A request is CAMERA_QUERY with a record of CAMERA_QUERY_SIZE bytes; the answer repeats its kind.
// Every question uses a channel object of its asker's own, so two threads may ask at once.
#pragma once

#include <cstdint>

#include "ipc/cicomm.h"

enum CameraQueryKind : int32_t {
  CAMERA_QUERY_SET_EXPOSURE = 0,  // not answered
  CAMERA_QUERY_EXPOSURE = 1,
  CAMERA_QUERY_FOCUS = 2,
};

// Byte offsets in request and answer; little-endian words, those not named are 0.
enum CameraQueryOffset : int {
  CAMERA_QUERY_KIND_AT = 0,       // int32
  CAMERA_QUERY_SETTING_AT = 4,    // set exposure: int32
  CAMERA_QUERY_LEVEL_AT = 4,      // answer, exposure: int32
  CAMERA_QUERY_DEVIATION_AT = 8,  // answer, exposure: int32
  CAMERA_QUERY_MEASURE_AT = 4,    // answer, focus: uint16
  CAMERA_QUERY_SIZE = 68,
};

// Longest wait for an answer, milliseconds.
constexpr int CAMERA_QUERY_TIMEOUT_MS = 3000;

// The focus measure where there is none.
constexpr uint16_t FOCUS_VALUE_NONE = 65535;

enum class CameraAnswer {
  kNoChannel,  // the question could not be asked
  kNone,       // no answer in time, or not one to this question
  kValid,      // its record is in the channel's receive buffer
};

// Asks and waits for the answer, with `channel` as a channel of its own: opened on 127.0.0.1 and
// closed here, its receive buffer stays readable.
CameraAnswer CameraAsk(CICOMM* channel, CameraQueryKind kind);

// Sends an exposure setting through an open channel; no answer is waited for.
void CameraSetExposure(CICOMM* channel, int32_t setting);

// Returns the image's present focus measure, the larger the sharper, or FOCUS_VALUE_NONE. Blocks
// for up to CAMERA_QUERY_TIMEOUT_MS. Lens loop's thread only.
uint16_t get_focus_value();
