#include "tools/frame_texts.h"

#include <array>

#include "ipc/cicomm.h"
#include "lens/camera_query.h"
#include "util/bytes.h"

namespace tools {
namespace {

// Which parameters a code has.
enum class Parameters { kNone, kFirst, kFirstUnsigned, kThree };

struct CodeRow {
  uint16_t code;
  const char* words;
  Parameters parameters;
};

constexpr std::array<CodeRow, 32> kCodes = {{
    {CAMERA_CODE_WHITE_BALANCE, "auto white balance", Parameters::kFirstUnsigned},
    {CAMERA_CODE_BACKLIGHT, "backlight compensation", Parameters::kFirstUnsigned},
    {CAMERA_CODE_AUTO_IRIS, "auto iris", Parameters::kFirstUnsigned},
    {CAMERA_CODE_IRIS_STEP, "P-iris step", Parameters::kFirst},
    {CAMERA_CODE_JOYSTICK, "joystick", Parameters::kThree},
    {CAMERA_CODE_SET_PRESET, "set preset", Parameters::kFirstUnsigned},
    {CAMERA_CODE_GO_TO_PRESET, "go to preset", Parameters::kFirstUnsigned},
    {CAMERA_CODE_CLEAR_PRESET, "clear preset", Parameters::kFirstUnsigned},
    {CAMERA_CODE_SET_PATTERN, "set pattern", Parameters::kFirstUnsigned},
    {CAMERA_CODE_RUN_PATTERN, "run pattern", Parameters::kFirstUnsigned},
    {CAMERA_CODE_ZOOM_SPEED, "zoom speed", Parameters::kFirst},
    {CAMERA_CODE_FOCUS_SPEED, "focus speed", Parameters::kFirst},
    {CAMERA_CODE_GO_TO_PRESET_33, "go to preset 33", Parameters::kNone},
    {CAMERA_CODE_GO_TO_PRESET_34, "go to preset 34", Parameters::kNone},
    {CAMERA_CODE_MODULE_SETTING, "module setting", Parameters::kFirstUnsigned},
    {CAMERA_CODE_FOCUS_SEARCH, "focus search", Parameters::kNone},
    {CAMERA_CODE_MENU, "menu", Parameters::kNone},
    {CAMERA_CODE_FOCUS, "focus", Parameters::kFirst},
    {CAMERA_CODE_ZOOM, "zoom", Parameters::kThree},
    {CAMERA_CODE_IRIS, "P-iris step", Parameters::kFirst},
    {CAMERA_CODE_MENU_ENTER, "menu (enter)", Parameters::kNone},
    {CAMERA_CODE_UP, "up", Parameters::kNone},
    {CAMERA_CODE_DOWN, "down", Parameters::kNone},
    {CAMERA_CODE_LEFT, "left", Parameters::kNone},
    {CAMERA_CODE_RIGHT, "right", Parameters::kNone},
    {CAMERA_CODE_SET_AUXILIARY, "set auxiliary", Parameters::kFirstUnsigned},
    {CAMERA_CODE_CLEAR_AUXILIARY, "clear auxiliary", Parameters::kFirstUnsigned},
    {CAMERA_CODE_GO_TO_PRESET_99, "go to preset 99", Parameters::kNone},
    {CAMERA_CODE_GO_TO_PRESET_96, "go to preset 96", Parameters::kNone},
    {CAMERA_CODE_ASSIST, "focus assist", Parameters::kNone},
    {CAMERA_CODE_AF_MODE, "AF mode", Parameters::kFirst},
    {CAMERA_CODE_REMOTE_RESET, "remote reset", Parameters::kNone},
}};

std::string ThreeWords(const CameraControl& control) {
  return "pan " + std::to_string(control.first) + ", tilt " + std::to_string(control.second) +
         ", zoom " + std::to_string(control.third);
}

std::string CodeWords(const CameraControl& control) {
  const CodeRow* row = FindRow(kCodes, control.code, &CodeRow::code);
  if (row == nullptr) return "not known, parameters " + ThreeWords(control);
  std::string words = row->words;
  switch (row->parameters) {
    case Parameters::kNone:
      break;
    case Parameters::kFirst:
      return words + " " + Signed(control.first);
    case Parameters::kFirstUnsigned:
      return words + " " + std::to_string(static_cast<uint8_t>(control.first));
    case Parameters::kThree:
      return words + ", " + ThreeWords(control);
  }
  return words;
}

std::string CameraQueryText(std::span<const uint8_t> payload) {
  if (payload.size() < CAMERA_QUERY_DEVIATION_AT + sizeof(uint32_t)) {
    return "camera query, whose record is cut off";
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
      return "camera query of kind " + std::to_string(kind) + ", which is not known";
  }
}

}  // namespace

std::string CameraControlText(const CameraControl& control) {
  std::string text = "camera control " + HexNumber(control.code, 4) + ": " + CodeWords(control);
  if (control.target != CAMERA_CONTROL_TARGET) {
    text += "; target " + std::to_string(control.target) + ", not " +
            std::to_string(CAMERA_CONTROL_TARGET) + ": the daemon ignores it";
  }
  return text;
}

std::string CommandText(int32_t command, std::span<const uint8_t> payload) {
  switch (command) {
    case CICOMM_PCMD_PTZ:
      if (payload.size() < CAMERA_CONTROL_SIZE) return "camera control, whose record is cut off";
      return CameraControlText(CameraControlDecode(payload.data()));
    case CICOMM_PCMD_MICOM_FIRMWARE_UPDATE:
      return "update the micom's firmware";
    case CAMERA_QUERY:
      return CameraQueryText(payload);
    default:
      return "command " + std::to_string(command) + ", which is not known, with " +
             Count(payload.size(), "byte");
  }
}

}  // namespace tools
