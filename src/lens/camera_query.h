// Image queries to the camera daemon over the command channel.
//
// A request is a CAMERA_QUERY command with a record of CAMERA_QUERY_SIZE bytes; the answer repeats
// its kind. Each caller uses its own channel object, so two threads may query at the same time.
#pragma once

#include <cstdint>

#include "ipc/cicomm.h"

enum CameraQueryKind : int32_t {
  CAMERA_QUERY_SET_EXPOSURE = 0,  // not answered
  CAMERA_QUERY_EXPOSURE = 1,
  CAMERA_QUERY_FOCUS = 2,
};

// Byte offsets in request and answer. Little-endian words; all other words are 0.
enum CameraQueryOffset : int {
  CAMERA_QUERY_KIND_AT = 0,       // int32
  CAMERA_QUERY_SETTING_AT = 4,    // set exposure: int32
  CAMERA_QUERY_LEVEL_AT = 4,      // answer, exposure: int32
  CAMERA_QUERY_DEVIATION_AT = 8,  // answer, exposure: int32
  CAMERA_QUERY_MEASURE_AT = 4,    // answer, focus: uint16
  CAMERA_QUERY_SIZE = 68,
};

// Timeout of an answer, milliseconds.
constexpr int CAMERA_QUERY_TIMEOUT_MS = 3000;

// Result of get_focus_value if no valid answer arrived.
constexpr uint16_t FOCUS_VALUE_NONE = 65535;

enum class CameraAnswer {
  kNoChannel,  // no socket, so the query was not sent
  kNone,       // no answer in time, or an answer to something else
  kValid,      // the record is in the channel's receive buffer
};

// Sends a query and waits for the answer. Opens `channel` on 127.0.0.1 and closes it again; its
// receive buffer remains readable. Blocks for up to CAMERA_QUERY_TIMEOUT_MS.
CameraAnswer CameraAsk(CICOMM* channel, CameraQueryKind kind);

// Sends an exposure setting through an open channel; does not wait for an answer.
void CameraSetExposure(CICOMM* channel, int32_t setting);

// Returns the current focus measure of the image (larger is sharper), or FOCUS_VALUE_NONE. Blocks
// for up to CAMERA_QUERY_TIMEOUT_MS. Lens loop's thread only.
uint16_t get_focus_value();
