#include "tools/frame_texts.h"

#include <algorithm>
#include <array>

#include "module/camera_info.h"
#include "module/hd_frame.h"
#include "module/micom_firmware.h"
#include "util/bytes.h"

namespace tools {
namespace {

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
    {HD_LENS_FOCUS_SEARCH, "focus search"},
    {HD_LENS_FOCUS_MINUS, "focus minus"},
    {HD_LENS_FOCUS_PLUS, "focus plus"},
}};

std::string DataWords(std::span<const DataRow> rows, uint8_t data) {
  const auto row = std::ranges::find(rows, data, &DataRow::data);
  return row != rows.end() ? row->words : "unknown, " + HexNumber(data);
}

std::string HdValueWords(uint8_t command, uint8_t value) {
  if (value == HD_NO_VALUE) return "unknown";
  if (command == HD_VERSION) return std::to_string(value >> 4) + "." + std::to_string(value & 0x0F);
  if (command == HD_SENSOR) return HexNumber(value) + " (" + HdModelText(value) + ")";
  return std::to_string(value);
}

std::string HdQueryText(uint8_t command, uint8_t value, Direction direction) {
  const DataRow* row = FindRow(kHdQueries, command, &DataRow::data);
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

}  // namespace

std::string HdText(std::span<const uint8_t> frame, Direction direction) {
  const uint8_t command = frame[HD_COMMAND_AT];
  const uint8_t data = frame[HD_DATA_AT];
  if (frame[HD_ACCESS_AT] == HD_QUERY) return HdQueryText(command, data, direction);
  return HdSettingText(command, data);
}

std::string FirmwarePacketText(std::span<const uint8_t> frame, Direction /*direction*/) {
  if (frame.size() == MICOM_TAIL_SIZE && frame[MICOM_TAIL_MARK_AT] == MICOM_TAIL) {
    const unsigned crc = LoadLe16(&frame[MICOM_TAIL_PAYLOAD_CRC_AT]);
    return "tail packet: the firmware's checksum is " + HexNumber(crc, 4);
  }
  // A header for 2 bytes looks like a data packet with 2 zero bytes; no firmware is that short.
  const size_t count = LoadLe16(&frame[MICOM_DATA_COUNT_AT]);
  if (frame.size() == count + MICOM_DATA_OVERHEAD) {
    return "data packet: " + Count(count, "byte") + " of firmware";
  }
  const uint32_t length = LoadLe32(&frame[MICOM_HEADER_LENGTH_AT]);
  return "header packet: " + Count(length, "byte") + " of firmware follow";
}

std::string FirmwareReadyText(std::span<const uint8_t> /*frame*/, Direction /*direction*/) {
  return "micom ready for the firmware";
}

std::string FirmwareAnswerText(uint8_t answer) {
  return answer == MICOM_ACCEPTED ? "packet accepted"
                                  : "packet not accepted: answer " + HexNumber(answer);
}

}  // namespace tools
