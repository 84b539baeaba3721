#include "tools/frame_texts.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "ipc/cicomm.h"
#include "lens/camera_query.h"
#include "lens/i2m.h"
#include "lens/speed_table.h"
#include "module/camera_info.h"
#include "module/hd_frame.h"
#include "module/micom_firmware.h"
#include "util/bytes.h"

namespace tools {
namespace {

// The row whose `key` is `value`, or null.
template <typename Rows, typename Value, typename Key>
auto Find(const Rows& rows, Value value, Key key) -> const typename Rows::value_type* {
  const auto row = std::ranges::find(rows, value, key);
  return row != rows.end() ? &*row : nullptr;
}

std::string Signed(int value) {
  std::array<char, 16> text;
  snprintf(text.data(), text.size(), "%+d", value);
  return text.data();
}

// --- Pelco-D -----------------------------------------------------------------------------------

struct ExtendedRow {
  uint8_t command;
  const char* words;
  bool has_argument;
};

constexpr std::array<ExtendedRow, 13> kExtended = {{
    {PELCO_SET_PRESET, "set preset", true},
    {PELCO_CLEAR_PRESET, "clear preset", true},
    {PELCO_GO_TO_PRESET, "go to preset", true},
    {PELCO_SET_AUXILIARY, "set auxiliary", true},
    {PELCO_CLEAR_AUXILIARY, "clear auxiliary", true},
    {PELCO_REMOTE_RESET, "remote reset", false},
    {PELCO_SET_PATTERN, "set pattern start", true},
    {PELCO_RUN_PATTERN, "run pattern", true},
    {PELCO_ZOOM_SPEED, "set zoom speed", true},
    {PELCO_FOCUS_SPEED, "set focus speed", true},
    {PELCO_AUTO_IRIS, "auto iris", true},
    {PELCO_BACKLIGHT, "backlight compensation", true},
    {PELCO_WHITE_BALANCE, "auto white balance", true},
}};

struct MotionRow {
  PelcoOffset byte;
  uint8_t bit;
  const char* words;
  int speed_at;  // byte with the speed, 0 when the frame carries none
};

constexpr std::array<MotionRow, 8> kMotions = {{
    {PELCO_COMMAND2_AT, PELCO2_PAN_LEFT, "pan left", PELCO_DATA1_AT},
    {PELCO_COMMAND2_AT, PELCO2_PAN_RIGHT, "pan right", PELCO_DATA1_AT},
    {PELCO_COMMAND2_AT, PELCO2_TILT_UP, "tilt up", PELCO_DATA2_AT},
    {PELCO_COMMAND2_AT, PELCO2_TILT_DOWN, "tilt down", PELCO_DATA2_AT},
    {PELCO_COMMAND2_AT, PELCO2_ZOOM_TELE, "zoom tele", 0},
    {PELCO_COMMAND2_AT, PELCO2_ZOOM_WIDE, "zoom wide", 0},
    {PELCO_COMMAND2_AT, PELCO2_FOCUS_FAR, "focus far", 0},
    {PELCO_COMMAND1_AT, PELCO1_FOCUS_NEAR, "focus near", 0},
}};

bool IsExtended(const PelcoFrame& frame) {
  return (frame[PELCO_COMMAND2_AT] & PELCO_EXTENDED_BIT) != 0;
}

PelcoFrame ToPelco(std::span<const uint8_t> bytes) {
  PelcoFrame frame;
  std::copy_n(bytes.begin(), frame.size(), frame.begin());
  return frame;
}

std::string ExtendedWords(const PelcoFrame& frame) {
  const std::string argument = std::to_string(frame[PELCO_DATA2_AT]);
  const uint8_t command = frame[PELCO_COMMAND2_AT];
  const ExtendedRow* row = Find(kExtended, command, &ExtendedRow::command);
  if (row == nullptr) return "unknown command " + HexNumber(command) + " with " + argument;
  return row->has_argument ? std::string(row->words) + " " + argument : row->words;
}

std::string MotionWords(const PelcoFrame& frame) {
  std::string words;
  bool has_speed = false;
  for (const MotionRow& row : kMotions) {
    if ((frame[static_cast<size_t>(row.byte)] & row.bit) == 0) continue;
    if (!words.empty()) words += ", ";
    words += row.words;
    if (row.speed_at == 0) continue;
    words += has_speed ? " at " : " at speed ";
    words += std::to_string(frame[static_cast<size_t>(row.speed_at)]);
    has_speed = true;
  }
  return words;
}

// --- HD micom ----------------------------------------------------------------------------------

struct DataRow {
  uint8_t data;
  const char* words;
};

constexpr std::array<DataRow, 3> kHdQueries = {{
    {HD_VERSION, "firmware version"},
    {HD_RESOLUTION_FLAG, "resolution flag"},
    {HD_SENSOR, "sensor"},
}};

constexpr std::array<DataRow, 5> kHdKeys = {{
    {HD_KEY_MENU, "menu"},
    {HD_KEY_UP, "up"},
    {HD_KEY_DOWN, "down"},
    {HD_KEY_LEFT, "left"},
    {HD_KEY_RIGHT, "right"},
}};

constexpr std::array<DataRow, 6> kHdLens = {{
    {HD_LENS_STOP, "stop"},
    {HD_LENS_TELE, "zoom tele"},
    {HD_LENS_WIDE, "zoom wide"},
    {HD_LENS_FOCUS_SEARCH, "search the sharpest focus"},
    {HD_LENS_FOCUS_MINUS, "focus minus"},
    {HD_LENS_FOCUS_PLUS, "focus plus"},
}};

std::string DataWords(std::span<const DataRow> rows, uint8_t data) {
  const auto row = std::ranges::find(rows, data, &DataRow::data);
  return row != rows.end() ? row->words : HexNumber(data) + ", which is not known";
}

std::string HdValueWords(uint8_t command, uint8_t value) {
  if (value == HD_NO_VALUE) return "not known";
  if (command == HD_VERSION) return std::to_string(value >> 4) + "." + std::to_string(value & 0x0F);
  if (command == HD_SENSOR) return HexNumber(value) + " (" + HdModelText(value) + ")";
  return std::to_string(value);
}

std::string HdQueryText(uint8_t command, uint8_t value, Direction direction) {
  const DataRow* row = Find(kHdQueries, command, &DataRow::data);
  const std::string what = row != nullptr ? row->words : "command " + HexNumber(command);
  const bool is_answer =
      direction == Direction::kFromDevice || (direction == Direction::kUnknown && value != 0);
  return is_answer ? "answer: " + what + " " + HdValueWords(command, value) : "query: " + what;
}

std::string HdSettingText(uint8_t command, uint8_t data) {
  switch (command) {
    case HD_MENU_KEY:
      return "menu key: " + DataWords(kHdKeys, data);
    case HD_LENS:
      return "lens: " + DataWords(kHdLens, data);
    case HD_PARAMETER:
      return "module setting: " + std::to_string(data);
    case HD_FIRMWARE_UPDATE:
      return "enter the firmware update";
    default:
      return "setting of command " + HexNumber(command) + " to " + std::to_string(data);
  }
}

// --- Lens micom --------------------------------------------------------------------------------

std::string StepsWords(uint16_t value) {
  const int steps = static_cast<int16_t>(value);
  return "move " + Signed(steps) + (steps == 1 || steps == -1 ? " step" : " steps");
}

std::string IrisWords(uint16_t value) {
  const int steps = static_cast<int16_t>(value);
  return StepsWords(value) + (steps > 0 ? " (opens)" : steps < 0 ? " (closes)" : "");
}

// The value 1 runs the way of the daemon's positive command, toward the zero end.
std::string JogWords(uint16_t value) {
  switch (value) {
    case I2M_JOG_NEGATIVE:
      return "run toward its maximum";
    case I2M_JOG_POSITIVE:
      return "run toward 0";
    case I2M_JOG_STOP:
      return "stop";
    default:
      return "jog value " + HexNumber(value, 4) + ", which is not known";
  }
}

std::string RateWords(uint16_t value) {
  const MotorSpeed* speed = Find(MOTOR_SPEEDS, value, &MotorSpeed::code);
  if (speed == nullptr) return "code " + HexNumber(value, 4) + ", which is not known";
  return std::to_string(speed->pps) + " steps a second";
}

std::string NumberWords(uint16_t value) {
  return std::to_string(value);
}

std::string FocusRequestWords(uint16_t value) {
  if (value > 1) return "value " + HexNumber(value, 4) + ", which is not known";
  return value == 1 ? "start sending them" : "stop sending them";
}

std::string AfModeWords(uint16_t value) {
  return value == 1 ? "the daemon drives zoom and focus" : "the micom drives zoom and focus";
}

std::string LensModelWords(uint16_t value) {
  return "sensor code " + std::to_string(value >> 8) + ", lens model code " +
         std::to_string(value & 0xFF);
}

std::string LensVersionWords(uint16_t value) {
  constexpr uint16_t kVariant = 0x8000;
  return std::to_string(value >> 8 & 0x7F) + "." + std::to_string(value & 0xFF) +
         ((value & kVariant) != 0 ? "-s" : "-m");
}

std::string TimerOffsetWords(uint16_t value) {
  const int size = value & 0xFF;
  return Signed(value >> 8 != 0 ? -size : size);
}

std::string RawWords(uint16_t value) {
  return HexNumber(value, 4);
}

struct RegisterRow {
  uint8_t address;
  const char* written;  // what a write is about
  std::string (*write_words)(uint16_t value);
  const char* read;  // what a read asks for
  std::string (*reply_words)(uint16_t value);
};

constexpr std::array<RegisterRow, 11> kRegisters = {{
    {I2M_ADDR_VERSION, "version", RawWords, "version", LensVersionWords},
    {I2M_ADDR_MOTOR_SPEED, "step rate", RateWords, "offset of the step timer", TimerOffsetWords},
    {I2M_ADDR_FOCUS_JOG, "focus motor", JogWords, "focus jog", RawWords},
    {I2M_ADDR_PIRIS_STEP, "P-iris", IrisWords, "P-iris steps", RawWords},
    {I2M_ADDR_ZOOM_MOVE, "zoom motor", StepsWords, "zoom steps", RawWords},
    {I2M_ADDR_FOCUS_MOVE, "focus motor", StepsWords, "focus steps", RawWords},
    {I2M_ADDR_ZOOM_JOG, "zoom motor", JogWords, "zoom jog", RawWords},
    {I2M_ADDR_FOCUS_VALUE, "focus measure", NumberWords, "focus measure", NumberWords},
    {I2M_ADDR_FOCUS_VALUE_REQ, "request for focus measures", FocusRequestWords,
     "request for focus measures", RawWords},
    {I2M_ADDR_AF_MODE, "AF mode", AfModeWords, "AF mode", AfModeWords},
    {I2M_ADDR_MFZ_MODEL, "lens model", LensModelWords, "lens model", LensModelWords},
}};

std::string UnknownRegisterText(uint8_t address, uint16_t value, bool is_write, bool is_reply) {
  const std::string head = "register " + HexNumber(address);
  if (is_write) return head + " write " + HexNumber(value, 4);
  return is_reply ? head + " reply " + HexNumber(value, 4) : head + " read";
}

// --- Camera control ----------------------------------------------------------------------------

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
  const CodeRow* row = Find(kCodes, control.code, &CodeRow::code);
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

std::string HexNumber(unsigned value, int digits) {
  std::array<char, 16> text;
  snprintf(text.data(), text.size(), "0x%0*X", digits, value);
  return text.data();
}

std::string Count(size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string PelcoWords(const PelcoFrame& frame) {
  std::string words = IsExtended(frame) ? ExtendedWords(frame) : MotionWords(frame);
  const unsigned unknown = frame[PELCO_COMMAND1_AT] & ~unsigned{PELCO1_FOCUS_NEAR};
  if (unknown != 0) {
    if (!words.empty()) words += ", ";
    words += "unknown bits " + HexNumber(unknown) + " in command 1";
  }
  return words.empty() ? "stop" : words;
}

std::string PelcoText(std::span<const uint8_t> frame, Direction /*direction*/) {
  const PelcoFrame pelco = ToPelco(frame);
  std::string text;
  if (pelco[PELCO_ADDRESS_AT] != PELCO_ADDRESS) {
    text = "receiver " + std::to_string(pelco[PELCO_ADDRESS_AT]) + ": ";
  }
  if (IsExtended(pelco)) text += "extended: ";
  return text + PelcoWords(pelco);
}

std::string HeadAnswerText(std::span<const uint8_t> frame, Direction /*direction*/) {
  const uint8_t alarms = frame[PELCO_COMMAND1_AT];
  return alarms == 0 ? "answer of the head: no alarm"
                     : "answer of the head: alarms " + HexNumber(alarms);
}

std::string SdText(std::span<const uint8_t> frame, Direction /*direction*/) {
  if (frame[PELCO_DATA1_AT] != 0) return "query: model";
  return "reply: model " + std::to_string(frame[PELCO_DATA2_AT]);
}

std::string HdText(std::span<const uint8_t> frame, Direction direction) {
  const uint8_t command = frame[HD_COMMAND_AT];
  const uint8_t data = frame[HD_DATA_AT];
  if (frame[HD_ACCESS_AT] == HD_QUERY) return HdQueryText(command, data, direction);
  return HdSettingText(command, data);
}

std::string LensText(std::span<const uint8_t> frame, Direction direction) {
  const uint8_t address = frame[I2M_ADDRESS_AT];
  const auto value = static_cast<uint16_t>(frame[I2M_HIGH_AT] << 8 | frame[I2M_LOW_AT]);
  const bool is_write = frame[I2M_KIND_AT] == I2M_WRITE;
  const bool is_reply =
      direction == Direction::kFromDevice || (direction == Direction::kUnknown && value != 0);
  if (is_write && address == I2M_ADDR_MFZ_MODEL && value == 0 &&
      direction != Direction::kToDevice) {
    return "the micom asks for sensor and lens model";
  }
  const RegisterRow* row = Find(kRegisters, address, &RegisterRow::address);
  if (row == nullptr) return UnknownRegisterText(address, value, is_write, is_reply);
  if (is_write) return std::string(row->written) + ": " + row->write_words(value);
  if (!is_reply) return std::string("read: ") + row->read;
  return std::string("reply: ") + row->read + " " + row->reply_words(value);
}

std::string FirmwarePacketText(std::span<const uint8_t> frame, Direction /*direction*/) {
  if (frame.size() == MICOM_TAIL_SIZE && frame[MICOM_TAIL_MARK_AT] == MICOM_TAIL) {
    const unsigned crc = LoadLe16(&frame[MICOM_TAIL_PAYLOAD_CRC_AT]);
    return "tail packet: the firmware's checksum is " + HexNumber(crc, 4);
  }
  // A header that announces 2 bytes reads like 2 zero bytes of data: no firmware is so short.
  const size_t count = LoadLe16(&frame[MICOM_DATA_COUNT_AT]);
  if (frame.size() == count + MICOM_DATA_OVERHEAD) {
    return "data packet: " + Count(count, "byte") + " of firmware";
  }
  const uint32_t length = LoadLe32(&frame[MICOM_HEADER_LENGTH_AT]);
  return "header packet: " + Count(length, "byte") + " of firmware follow";
}

std::string FirmwareReadyText(std::span<const uint8_t> /*frame*/, Direction /*direction*/) {
  return "the micom is ready for the firmware";
}

std::string FirmwareAnswerText(uint8_t answer) {
  return answer == MICOM_ACCEPTED ? "packet accepted"
                                  : "packet not accepted: answer " + HexNumber(answer);
}

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
