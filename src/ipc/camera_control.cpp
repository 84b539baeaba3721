#include "ipc/camera_control.h"

#include <cstring>

#include "util/bytes.h"

CameraControl CameraControlDecode(const uint8_t* payload) {
  return {.target = static_cast<int32_t>(LoadLe32(payload + CAMERA_CONTROL_TARGET_AT)),
          .code = LoadLe16(payload + CAMERA_CONTROL_CODE_AT),
          .first = static_cast<int8_t>(payload[CAMERA_CONTROL_FIRST_AT]),
          .second = static_cast<int8_t>(payload[CAMERA_CONTROL_SECOND_AT]),
          .third = static_cast<int8_t>(payload[CAMERA_CONTROL_THIRD_AT])};
}

void CameraControlEncode(const CameraControl& control, uint8_t* payload) {
  memset(payload, 0, CAMERA_CONTROL_SIZE);
  StoreLe32(payload + CAMERA_CONTROL_TARGET_AT, static_cast<uint32_t>(control.target));
  StoreLe16(payload + CAMERA_CONTROL_CODE_AT, control.code);
  payload[CAMERA_CONTROL_FIRST_AT] = static_cast<uint8_t>(control.first);
  payload[CAMERA_CONTROL_SECOND_AT] = static_cast<uint8_t>(control.second);
  payload[CAMERA_CONTROL_THIRD_AT] = static_cast<uint8_t>(control.third);
}
