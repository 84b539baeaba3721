#include "tools/frame_texts.h"

#include "ipc/cicomm.h"
#include "lens/camera_query.h"
#include "tools/ptz_verbs.h"
#include "util/bytes.h"

namespace tools {
namespace {

std::string CameraQueryText(std::span<const uint8_t> payload) {
  if (payload.size() < CAMERA_QUERY_DEVIATION_AT + sizeof(uint32_t)) {
    return "camera query, incomplete";
  }
  const uint32_t kind = LoadLe32(&payload[CAMERA_QUERY_KIND_AT]);
  const auto first = static_cast<int32_t>(LoadLe32(&payload[CAMERA_QUERY_LEVEL_AT]));
  const auto second = static_cast<int32_t>(LoadLe32(&payload[CAMERA_QUERY_DEVIATION_AT]));
  switch (kind) {
    case CAMERA_QUERY_SET_EXPOSURE:
      return "camera query: set the exposure to " + std::to_string(first);
    case CAMERA_QUERY_EXPOSURE:
      return first == 0 && second == 0 ? "camera query: exposure"
                                       : "camera query: exposure level " + std::to_string(first) +
                                             ", deviation " + std::to_string(second);
    case CAMERA_QUERY_FOCUS:
      return first == 0 ? "camera query: focus measure"
                        : "camera query: focus measure " + std::to_string(first & 0xFFFF);
    default:
      return "camera query of unknown kind " + std::to_string(kind);
  }
}

}  // namespace

std::string CameraControlText(const CameraControl& control) {
  std::string text = "camera control " + HexNumber(control.code, 4) + ": " + VerbText(control);
  if (control.target != CAMERA_CONTROL_TARGET) {
    text += "; target " + std::to_string(control.target) + ", not " +
            std::to_string(CAMERA_CONTROL_TARGET) + ": the daemon ignores it";
  }
  return text;
}

std::string CommandText(int32_t command, std::span<const uint8_t> payload) {
  switch (command) {
    case CICOMM_PCMD_PTZ:
      if (payload.size() < CAMERA_CONTROL_SIZE) return "camera control, incomplete";
      return CameraControlText(CameraControlDecode(payload.data()));
    case CICOMM_PCMD_MICOM_FIRMWARE_UPDATE:
      return "update the micom's firmware";
    case CAMERA_QUERY:
      return CameraQueryText(payload);
    default:
      return "unknown command " + std::to_string(command) + " with " +
             Count(payload.size(), "byte");
  }
}

}  // namespace tools
