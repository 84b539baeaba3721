#include "sim/pelco_decoder.h"

#include <algorithm>
#include <array>

namespace sim {
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

std::string DescribeExtended(const PelcoFrame& frame) {
  const std::string argument = std::to_string(frame[PELCO_DATA2_AT]);
  for (const ExtendedRow& row : kExtended) {
    if (row.command != frame[PELCO_COMMAND2_AT]) continue;
    std::string words = row.words;
    if (row.has_argument) words.append(" ").append(argument);
    return words;
  }
  return "unknown command " + Hex({&frame[PELCO_COMMAND2_AT], 1}) + " with " + argument;
}

bool IsFrame(std::span<const uint8_t> bytes) {
  PelcoFrame frame;
  std::copy_n(bytes.begin(), frame.size(), frame.begin());
  return frame[PELCO_ADDRESS_AT] == PELCO_ADDRESS &&
         frame[PELCO_CHECKSUM_AT] == PelcoChecksum(frame);
}

}  // namespace

bool IsPelcoExtended(const PelcoFrame& frame) {
  return (frame[PELCO_COMMAND2_AT] & PELCO_EXTENDED_BIT) != 0;
}

std::string DescribePelco(const PelcoFrame& frame) {
  if (IsPelcoExtended(frame)) return DescribeExtended(frame);
  std::string words;
  for (const MotionRow& row : kMotions) {
    if ((frame[static_cast<size_t>(row.byte)] & row.bit) == 0) continue;
    if (!words.empty()) words += ", ";
    words += row.words;
    if (row.speed_at != 0) {
      words += " at " + std::to_string(frame[static_cast<size_t>(row.speed_at)]);
    }
  }
  return words.empty() ? "stop" : words;
}

void PelcoDecoder::Feed(std::span<const uint8_t> bytes) {
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  Scan(false);
}

void PelcoDecoder::Flush() {
  Scan(true);
}

void PelcoDecoder::Scan(bool final) {
  Bytes noise;
  size_t at = 0;
  const auto hand_noise_out = [&] {
    if (!noise.empty()) on_noise(noise);
    noise.clear();
  };
  while (at < pending_.size()) {
    const std::span<const uint8_t> rest(pending_.begin() + static_cast<std::ptrdiff_t>(at),
                                        pending_.end());
    const bool whole = rest.size() >= PELCO_FRAME_SIZE;
    if (rest[0] == PELCO_SYNC && !whole && !final) break;
    if (rest[0] == PELCO_SYNC && whole && IsFrame(rest)) {
      hand_noise_out();
      PelcoFrame frame;
      std::copy_n(rest.begin(), frame.size(), frame.begin());
      on_frame(frame);
      at += frame.size();
    } else {
      noise.push_back(rest[0]);
      ++at;
    }
  }
  hand_noise_out();
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(at));
}

}  // namespace sim
