// The micom of an HD camera module at the far end of the line.
//
// It receives 10-byte frames, answers queries about itself, and obeys menu keys and lens settings
// without an answer. The firmware-update setting hands the line to its loader for good: the reset
// that would return from it is not simulated.
#pragma once

#include <termios.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sim/far_end.h"
#include "sim/micom_loader.h"
#include "sim/module_lens.h"
#include "sim/module_menu.h"
#include "sim/pty_line.h"

namespace sim {

// The answers to the identity queries.
struct HdIdentity {
  uint8_t version = 0x21;  // major and minor in a nibble each
  uint8_t resolution_flag = 0;
  uint8_t sensor = 0x46;
};

// Time from a query to the answer.
constexpr milliseconds kHdAnswerTime{5};

class HdMicom : public FarEnd {
 public:
  // `line_settings` returns the settings of the daemon's end of the line; `loader` configures the
  // firmware loader.
  HdMicom(const HdIdentity& identity, LoaderSetup loader, std::function<termios()> line_settings,
          Clock::time_point now);

  void Feed(std::span<const uint8_t> bytes, Clock::time_point now) override;
  void Tick(Clock::time_point now) override;
  const char* Name() const override { return "micom"; }
  std::string Describe() const override;
  bool IsMoving() const override { return loader_.has_value() || lens_.IsMoving(); }

  const ModuleLens& Lens() const { return lens_; }
  const ModuleMenu& Menu() const { return menu_; }
  // The loader; null before it was entered.
  const MicomLoader* Loader() const { return loader_.has_value() ? &*loader_ : nullptr; }

 private:
  struct Answer {
    Clock::time_point due;
    Bytes bytes;
  };

  void Scan(bool is_final);
  void TakeFrame(std::span<const uint8_t> frame);
  void TakeQuery(uint8_t command);
  void TakeSetting(uint8_t command, uint8_t data);
  void TakeLens(uint8_t data);
  void EnterLoader();

  HdIdentity identity_;
  LoaderSetup loader_setup_;
  std::function<termios()> line_settings_;
  Clock::time_point now_;
  Clock::time_point last_byte_;
  Bytes pending_;
  std::vector<Answer> answers_;
  ModuleLens lens_;
  ModuleMenu menu_;
  std::optional<MicomLoader> loader_;
};

}  // namespace sim
