// An SD camera module at the far end of the line.
//
// It accepts Pelco-D frames: menu keys, zoom until a frame without zoom, and the model query, the
// only frame it answers. It has no pan, tilt or focus motors.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sim/far_end.h"
#include "sim/module_lens.h"
#include "sim/module_menu.h"
#include "sim/pelco_decoder.h"

namespace sim {

// Time from the query to the answer.
constexpr milliseconds kSdAnswerTime{15};

class SdModule : public FarEnd {
 public:
  SdModule(uint8_t model_code, Clock::time_point now);

  void Feed(std::span<const uint8_t> bytes, Clock::time_point now) override;
  void Tick(Clock::time_point now) override;
  const char* Name() const override { return "module"; }
  std::string Describe() const override;
  bool IsMoving() const override { return lens_.IsMoving(); }

  const ModuleLens& Lens() const { return lens_; }
  const ModuleMenu& Menu() const { return menu_; }

 private:
  void TakeFrame(const PelcoFrame& frame);
  bool TakeKey(const PelcoFrame& frame);

  uint8_t model_code_;
  PelcoDecoder decoder_;
  ModuleLens lens_;
  ModuleMenu menu_;
  Clock::time_point last_byte_;
  std::optional<Clock::time_point> answer_due_;
};

}  // namespace sim
