// The microcontroller of a motorized lens, and its lens: zoom, focus and P-iris.
//
// It answers the register protocol and drives three steppers. Frames with a wrong checksum are
// noise. The positions are those of the simulated motors, whatever the daemon assumes.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "lens/i2m.h"
#include "sim/far_end.h"
#include "sim/stepper.h"

namespace sim {

// Mechanics of a lens. The defaults are those of the HERON lens.
struct LensBuild {
  int zoom_travel = 1400;  // steps from end to end
  // More than the daemon assumes: the last step of a search may exceed its upper limit.
  int focus_travel = 2609;
  int iris_travel = 96;
};

// Position of a lens in steps from the zero ends (iris: from closed).
struct LensPose {
  int zoom = 0;
  int focus = 0;
  int iris = 0;
};

// Identity and behaviour of the micom.
struct MicomTraits {
  uint8_t major = 0x81;  // bit 7 is the variant
  uint8_t minor = 0x05;
  milliseconds answer_after{2};
  bool silent = false;  // answers nothing
  // A motor makes the first step of a move one step period after the frame instead of at once.
  bool starts_late = false;
};

// The lens counts as moving for this long after a move, to bridge the gaps between the short moves
// of a drive.
constexpr milliseconds kRestAfter{100};

// A valid frame that arrived.
struct LensFrame {
  Clock::time_point time;
  I2mFrame bytes;
};

class LensMicom : public FarEnd {
 public:
  explicit LensMicom(Clock::time_point now, const LensPose& pose = {}, const LensBuild& build = {});

  void Feed(std::span<const uint8_t> bytes, Clock::time_point now) override;
  void Tick(Clock::time_point now) override;
  const char* Name() const override { return "lens"; }
  std::string Describe() const override;
  bool IsMoving() const override;

  // --- Requests to the daemon ---
  void RequestFocusValues(bool on);
  void RequestLensModel();

  // --- State ---
  LensPose Pose() const;
  const Stepper& Zoom() const { return zoom_; }
  const Stepper& Focus() const { return focus_; }
  const Stepper& Iris() const { return iris_; }
  // The value last written to a register; 0 if it was never written.
  uint16_t Register(uint8_t address) const;
  // Returns the frames since the last call.
  std::vector<LensFrame> TakeFrames();

  // Moves the lens by hand.
  void Place(const LensPose& pose);

  MicomTraits traits;

 private:
  struct Answer {
    Clock::time_point due;
    I2mFrame frame;
  };

  void TurnMotors();
  void TakeByte(uint8_t byte);
  void TakeFrame();
  void TakeWrite(uint8_t address, uint16_t value);
  void TakeRead(uint8_t address);
  void DropNoise();
  void SetRate(uint16_t code);
  void MoveMotor(Stepper* motor, int steps, const char* name, const char* positive,
                 const char* negative);
  void JogMotor(Stepper* motor, uint16_t value, const char* name);
  Clock::time_point FirstStep(const Stepper& motor) const;
  void Send(uint8_t kind, uint8_t address, uint8_t high, uint8_t low);

  Stepper zoom_;
  Stepper focus_;
  Stepper iris_;
  std::map<uint8_t, uint16_t> registers_ = {{I2M_ADDR_AF_MODE, 1}};  // the daemon drives
  std::vector<uint8_t> partial_;                                     // partial frame
  std::vector<uint8_t> noise_;
  std::deque<Answer> answers_;
  std::vector<LensFrame> frames_;
  Clock::time_point now_;
  // Time of the last check for bytes: later bytes may have arrived just after it.
  Clock::time_point line_empty_;
  Clock::time_point feed_start_;  // earliest possible arrival of the current bytes
  Clock::time_point last_byte_;
  Clock::time_point last_turn_;  // of a motor
};

}  // namespace sim
