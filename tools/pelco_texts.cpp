#include "tools/frame_texts.h"

#include <algorithm>
#include <array>

namespace tools {
namespace {

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
  const ExtendedRow* row = FindRow(kExtended, command, &ExtendedRow::command);
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

}  // namespace

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

}  // namespace tools
