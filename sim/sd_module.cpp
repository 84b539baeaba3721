#include "sim/sd_module.h"

#include <algorithm>
#include <array>

#include "tools/format.h"
#include "tools/frame_texts.h"

namespace sim {
namespace {

// Frame bodies (command 1 to data 2).
constexpr std::array<uint8_t, 4> kModelQuery = {0x00, 0x00, 0x96, 0x69};
constexpr std::array<uint8_t, 4> kNothing = {0x00, 0x00, 0x00, 0x00};

struct KeyRow {
  std::array<uint8_t, 4> body;
  MenuKey key;
  const char* words;
};

constexpr std::array<KeyRow, 5> kKeys = {{
    {{0x00, PELCO_SET_PRESET, 0x00, 95}, MenuKey::kMenu, "menu key"},
    {{0x00, PELCO2_TILT_UP, 0x00, 0x00}, MenuKey::kUp, "up key"},
    {{0x00, PELCO2_TILT_DOWN, 0x00, 0x00}, MenuKey::kDown, "down key"},
    {{0x00, PELCO2_PAN_LEFT, 0x00, 0x00}, MenuKey::kLeft, "left key"},
    {{0x00, PELCO2_PAN_RIGHT, 0x00, 0x00}, MenuKey::kRight, "right key"},
}};

bool HasBody(const PelcoFrame& frame, const std::array<uint8_t, 4>& body) {
  return std::equal(body.begin(), body.end(), frame.begin() + PELCO_COMMAND1_AT);
}

int ZoomDirection(const PelcoFrame& frame) {
  const uint8_t bits = frame[PELCO_COMMAND2_AT];
  return ((bits & PELCO2_ZOOM_TELE) != 0 ? 1 : 0) - ((bits & PELCO2_ZOOM_WIDE) != 0 ? 1 : 0);
}

}  // namespace

SdModule::SdModule(uint8_t model_code, Clock::time_point now)
    : model_code_(model_code), lens_(now), last_byte_(now) {
  decoder_.on_frame = [this](const PelcoFrame& frame) { TakeFrame(frame); };
  decoder_.on_noise = [this](std::span<const uint8_t> bytes) { on_noise(bytes); };
}

void SdModule::Feed(std::span<const uint8_t> bytes, Clock::time_point now) {
  lens_.Advance(now);
  last_byte_ = now;
  decoder_.Feed(bytes);
}

void SdModule::Tick(Clock::time_point now) {
  lens_.Advance(now);
  if (now - last_byte_ >= kQuietAfter) decoder_.Flush();
  if (!answer_due_.has_value() || now < *answer_due_) return;
  answer_due_.reset();
  const PelcoFrame answer =
      PelcoBuild({.command1 = 0, .command2 = 0, .data1 = 0, .data2 = model_code_});
  on_answer(answer);
}

std::string SdModule::Describe() const {
  return tools::Format("zoom %.1fx, ", lens_.ZoomAt()) + menu_.Describe();
}

void SdModule::TakeFrame(const PelcoFrame& frame) {
  on_frame(frame);
  if (HasBody(frame, kModelQuery)) {
    answer_due_ = last_byte_ + kSdAnswerTime;
    on_words("model query");
    return;
  }
  if (!IsPelcoExtended(frame)) lens_.Zoom(ZoomDirection(frame));
  if (TakeKey(frame)) return;
  on_words(HasBody(frame, kNothing) ? "stop" : tools::PelcoWords(frame));
}

bool SdModule::TakeKey(const PelcoFrame& frame) {
  for (const KeyRow& row : kKeys) {
    if (!HasBody(frame, row.body)) continue;
    menu_.Press(row.key);
    on_words(row.words);
    return true;
  }
  return false;
}

}  // namespace sim
