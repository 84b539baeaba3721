#include "sim/ptz_head.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/format.h"
#include "tools/frame_texts.h"

namespace sim {
namespace {

// The maximum zoom and focus speed of Pelco-D.
constexpr int kMotorSpeedMax = 3;

// Setting this preset opens the menu.
constexpr uint8_t kMenuPreset = 95;

// Degrees a second at a Pelco speed. At speed 0, heads move slowly instead of stopping.
double TurnRate(uint8_t speed, double at_top) {
  const double share = static_cast<double>(std::min(speed, PELCO_SPEED_MAX)) / PELCO_SPEED_MAX;
  return at_top * std::max(share, kHeadLowestShare);
}

// +1, -1 or 0, depending on the set bit.
double Sign(bool positive, bool negative) {
  return (positive ? 1.0 : 0.0) - (negative ? 1.0 : 0.0);
}

}  // namespace

PtzHead::PtzHead(Clock::time_point now) : now_(now), last_byte_(now) {
  decoder_.on_frame = [this](const PelcoFrame& frame) { TakeFrame(frame); };
  decoder_.on_noise = [this](std::span<const uint8_t> bytes) { on_noise(bytes); };
}

void PtzHead::Feed(std::span<const uint8_t> bytes, Clock::time_point now) {
  Advance(now);
  last_byte_ = now;
  decoder_.Feed(bytes);
}

void PtzHead::Tick(Clock::time_point now) {
  Advance(now);
  if (now - last_byte_ >= kQuietAfter) decoder_.Flush();
}

HeadPose PtzHead::Pose(Clock::time_point now) {
  Advance(now);
  return pose_;
}

bool PtzHead::IsMoving() const {
  return rate_.pan != 0 || rate_.tilt != 0 || rate_.zoom != 0 || rate_.focus != 0;
}

std::string PtzHead::Describe(const HeadPose& pose) {
  return tools::Format("pan %.1f deg, tilt %.1f deg, zoom %.1fx, focus %.0f %%", pose.pan,
                       pose.tilt, pose.zoom, pose.focus);
}

void PtzHead::Advance(Clock::time_point now) {
  constexpr double kCircle = 360;
  const double seconds = std::chrono::duration<double>(now - now_).count();
  now_ = now;
  pose_.pan = std::fmod(pose_.pan + rate_.pan * seconds, kCircle);
  if (pose_.pan < 0) pose_.pan += kCircle;
  pose_.tilt = std::clamp(pose_.tilt + rate_.tilt * seconds, -90.0, 90.0);
  pose_.zoom = std::clamp(pose_.zoom + rate_.zoom * seconds, 1.0, 20.0);
  pose_.focus = std::clamp(pose_.focus + rate_.focus * seconds, 0.0, 100.0);
}

void PtzHead::TakeFrame(const PelcoFrame& frame) {
  ++frame_count_;
  on_frame(frame);
  if (IsPelcoExtended(frame)) {
    TakeExtended(frame);
  } else {
    TakeMotion(frame);
  }
  on_words(tools::PelcoWords(frame));
  constexpr uint8_t kNoAlarms = 0;
  constexpr uint8_t kChecksum = (PELCO_ADDRESS + kNoAlarms) & 0xFF;
  const std::array<uint8_t, 4> answer = {PELCO_SYNC, PELCO_ADDRESS, kNoAlarms, kChecksum};
  on_answer(answer);
}

void PtzHead::TakeMotion(const PelcoFrame& frame) {
  const uint8_t bits = frame[PELCO_COMMAND2_AT];
  const auto has = [bits](uint8_t bit) { return (bits & bit) != 0; };
  const bool near = (frame[PELCO_COMMAND1_AT] & PELCO1_FOCUS_NEAR) != 0;
  rate_.pan = Sign(has(PELCO2_PAN_RIGHT), has(PELCO2_PAN_LEFT)) *
              TurnRate(frame[PELCO_DATA1_AT], kHeadPanAtTop);
  rate_.tilt = Sign(has(PELCO2_TILT_UP), has(PELCO2_TILT_DOWN)) *
               TurnRate(frame[PELCO_DATA2_AT], kHeadTiltAtTop);
  rate_.zoom = Sign(has(PELCO2_ZOOM_TELE), has(PELCO2_ZOOM_WIDE)) * kHeadZoomRate * zoom_speed_;
  rate_.focus = Sign(has(PELCO2_FOCUS_FAR), near) * kHeadFocusRate * focus_speed_;
}

void PtzHead::TakeExtended(const PelcoFrame& frame) {
  const uint8_t argument = frame[PELCO_DATA2_AT];
  switch (frame[PELCO_COMMAND2_AT]) {
    case PELCO_SET_PRESET:
      if (argument != kMenuPreset) presets_[argument] = pose_;
      break;
    case PELCO_CLEAR_PRESET:
      presets_.erase(argument);
      break;
    case PELCO_GO_TO_PRESET:
      // A simplification: this head moves to presets in no time.
      if (presets_.contains(argument)) pose_ = presets_[argument];
      break;
    case PELCO_ZOOM_SPEED:
      zoom_speed_ = 1 + std::min<int>(argument, kMotorSpeedMax);
      break;
    case PELCO_FOCUS_SPEED:
      focus_speed_ = 1 + std::min<int>(argument, kMotorSpeedMax);
      break;
    case PELCO_REMOTE_RESET:
      pose_ = HeadPose{};
      rate_ = {0, 0, 0, 0};
      break;
    default:
      break;
  }
}

}  // namespace sim
