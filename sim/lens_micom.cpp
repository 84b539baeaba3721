#include "sim/lens_micom.h"

#include <array>
#include <cstdlib>
#include <numeric>
#include <utility>

#include "tools/format.h"
#include "tools/frame_texts.h"

namespace sim {
namespace {

struct RateRow {
  uint16_t code;
  int rate;  // steps a second
};
constexpr std::array<RateRow, 5> kRates = {
    {{0x00, 1082}, {0x10, 793}, {0x20, 625}, {0x30, 515}, {0x40, 438}}};
constexpr int kRateAtPowerOn = 438;
constexpr int kIrisRate = 400;  // steps a second
// Answer to the query for the step timer.
constexpr uint8_t kPrescalerSign = 0;
constexpr uint8_t kPrescalerSize = 5;

uint8_t Sum(std::span<const uint8_t> bytes) {
  const unsigned sum = std::accumulate(bytes.begin(), bytes.end(), 0U);
  return static_cast<uint8_t>(sum & 0xFF);
}

int Signed(uint16_t value) {
  return static_cast<int16_t>(value);
}

std::string Steps(int count) {
  return std::to_string(std::abs(count)) + (std::abs(count) == 1 ? " step" : " steps");
}

}  // namespace

LensMicom::LensMicom(Clock::time_point now, const LensPose& pose, const LensBuild& build)
    : zoom_(build.zoom_travel, pose.zoom, kRateAtPowerOn),
      focus_(build.focus_travel, pose.focus, kRateAtPowerOn),
      iris_(build.iris_travel, pose.iris, kIrisRate),
      now_(now),
      line_empty_(now),
      feed_start_(now),
      last_byte_(now),
      last_turn_(now - kRestAfter) {}

// A motor starts at the last time the line was seen empty, the earliest time at which a frame can
// have arrived. Rare polling therefore loses no steps.
void LensMicom::Feed(std::span<const uint8_t> bytes, Clock::time_point now) {
  feed_start_ = line_empty_;
  Tick(now);
  last_byte_ = now;
  for (const uint8_t byte : bytes)
    TakeByte(byte);
  TurnMotors();
}

void LensMicom::Tick(Clock::time_point now) {
  now_ = now;
  line_empty_ = now;
  TurnMotors();
  if (now - last_byte_ >= kQuietAfter) {
    noise_.insert(noise_.end(), partial_.begin(), partial_.end());
    partial_.clear();
    DropNoise();
  }
  while (!answers_.empty() && answers_.front().due <= now) {
    const Answer answer = answers_.front();
    answers_.pop_front();
    on_answer(answer.frame);
  }
}

void LensMicom::TurnMotors() {
  for (Stepper* motor : {&zoom_, &focus_, &iris_}) {
    if (motor->IsMoving()) last_turn_ = now_;
    motor->Advance(now_);
  }
}

std::string LensMicom::Describe() const {
  return tools::Format("zoom %d, focus %d, iris %d", zoom_.Position(), focus_.Position(),
                       iris_.Position());
}

bool LensMicom::IsMoving() const {
  return zoom_.IsMoving() || focus_.IsMoving() || iris_.IsMoving() ||
         now_ - last_turn_ < kRestAfter;
}

void LensMicom::RequestFocusValues(bool on) {
  Send(I2M_WRITE, I2M_ADDR_FOCUS_VALUE_REQ, 0, on ? 1 : 0);
}

void LensMicom::RequestLensModel() {
  Send(I2M_WRITE, I2M_ADDR_MFZ_MODEL, 0, 0);
}

LensPose LensMicom::Pose() const {
  return {.zoom = zoom_.Position(), .focus = focus_.Position(), .iris = iris_.Position()};
}

uint16_t LensMicom::Register(uint8_t address) const {
  const auto found = registers_.find(address);
  return found != registers_.end() ? found->second : uint16_t{0};
}

std::vector<LensFrame> LensMicom::TakeFrames() {
  return std::exchange(frames_, {});
}

void LensMicom::Place(const LensPose& pose) {
  zoom_.Place(pose.zoom);
  focus_.Place(pose.focus);
  iris_.Place(pose.iris);
}

// --- Frames ------------------------------------------------------------------------------------

void LensMicom::TakeByte(uint8_t byte) {
  if (partial_.empty() && byte != I2M_SYNC) {
    noise_.push_back(byte);
    return;
  }
  partial_.push_back(byte);
  if (partial_.size() < I2M_FRAME_SIZE) return;
  if (Sum({partial_.data(), I2M_CHECKSUM_AT}) == partial_[I2M_CHECKSUM_AT]) {
    DropNoise();
    TakeFrame();
    partial_.clear();
    return;
  }
  // The first byte starts no frame, but a later one may.
  const std::vector<uint8_t> rest(partial_.begin() + 1, partial_.end());
  noise_.push_back(partial_.front());
  partial_.clear();
  for (const uint8_t other : rest)
    TakeByte(other);
}

void LensMicom::DropNoise() {
  if (!noise_.empty()) on_noise(noise_);
  noise_.clear();
}

void LensMicom::TakeFrame() {
  LensFrame frame = {.time = now_, .bytes = {}};
  std::copy_n(partial_.begin(), I2M_FRAME_SIZE, frame.bytes.begin());
  frames_.push_back(frame);
  on_frame(frame.bytes);
  const uint8_t address = frame.bytes[I2M_ADDRESS_AT];
  const auto value = static_cast<uint16_t>(frame.bytes[I2M_HIGH_AT] << 8 | frame.bytes[I2M_LOW_AT]);
  if (frame.bytes[I2M_KIND_AT] == I2M_READ) {
    TakeRead(address);
  } else {
    registers_[address] = value;
    TakeWrite(address, value);
  }
}

void LensMicom::TakeRead(uint8_t address) {
  switch (address) {
    case I2M_ADDR_VERSION:
      on_words("version query");
      Send(I2M_READ, address, traits.major, traits.minor);
      break;
    case I2M_ADDR_MOTOR_SPEED:
      on_words("step timer query");
      Send(I2M_READ, address, kPrescalerSign, kPrescalerSize);
      break;
    default:
      on_words("query of unknown register " + tools::HexNumber(address, 2));
      break;
  }
}

void LensMicom::TakeWrite(uint8_t address, uint16_t value) {
  switch (address) {
    case I2M_ADDR_MOTOR_SPEED:
      SetRate(value);
      break;
    case I2M_ADDR_ZOOM_MOVE:
      // A positive value drives zoom and focus toward 0, which is tele for the zoom.
      MoveMotor(&zoom_, -Signed(value), "zoom", "wide", "tele");
      break;
    case I2M_ADDR_FOCUS_MOVE:
      MoveMotor(&focus_, -Signed(value), "focus", "up", "down");
      break;
    case I2M_ADDR_PIRIS_STEP:
      MoveMotor(&iris_, Signed(value), "iris", "open", "closed");
      break;
    case I2M_ADDR_ZOOM_JOG:
      JogMotor(&zoom_, value, "zoom");
      break;
    case I2M_ADDR_FOCUS_JOG:
      JogMotor(&focus_, value, "focus");
      break;
    case I2M_ADDR_AF_MODE:
      on_words(value == 1 ? "the daemon drives zoom and focus" : "the micom drives zoom and focus");
      break;
    case I2M_ADDR_FOCUS_VALUE:
      on_words("focus measure " + std::to_string(value));
      break;
    case I2M_ADDR_MFZ_MODEL:
      on_words("sensor code " + std::to_string(value >> 8) + ", lens model code " +
               std::to_string(value & 0xFF));
      break;
    default:
      on_words("unknown register " + tools::HexNumber(address, 2) + " = " +
               tools::HexNumber(value, 4));
      break;
  }
}

void LensMicom::SetRate(uint16_t code) {
  for (const RateRow& row : kRates) {
    if (row.code != code) continue;
    zoom_.SetRate(row.rate);
    focus_.SetRate(row.rate);
    on_words("step rate " + std::to_string(row.rate) + " pps");
    return;
  }
  on_words("unknown step rate code " + tools::HexNumber(code, 4));
}

void LensMicom::MoveMotor(Stepper* motor, int steps, const char* name, const char* positive,
                          const char* negative) {
  const long lost = motor->Lost();
  motor->Advance(now_);  // steps of an earlier frame in the same read
  motor->Move(steps, FirstStep(*motor));
  std::string words = std::string(name) + " " + Steps(steps);
  if (steps != 0) words += std::string(" ") + (steps > 0 ? positive : negative);
  words += " at " + std::to_string(motor->Rate()) + " pps";
  if (motor->Lost() != lost)
    words += ", " + Steps(static_cast<int>(motor->Lost() - lost)) + " of the last move lost";
  on_words(words);
}

// The value 1 drives toward the zero end, as a positive move does.
void LensMicom::JogMotor(Stepper* motor, uint16_t value, const char* name) {
  switch (value) {
    case I2M_JOG_POSITIVE:
      motor->Jog(-1, FirstStep(*motor));
      on_words(std::string(name) + " runs toward 0");
      break;
    case I2M_JOG_NEGATIVE:
      motor->Jog(1, FirstStep(*motor));
      on_words(std::string(name) + " runs toward its maximum");
      break;
    case I2M_JOG_STOP:
      motor->Stop();
      on_words(std::string(name) + " stops");
      break;
    default:
      on_words(std::string(name) + ": unknown jog value " + tools::HexNumber(value, 4));
      break;
  }
}

Clock::time_point LensMicom::FirstStep(const Stepper& motor) const {
  return traits.starts_late ? now_ + motor.Period() : feed_start_;
}

void LensMicom::Send(uint8_t kind, uint8_t address, uint8_t high, uint8_t low) {
  if (traits.silent) return;
  I2mFrame frame = {I2M_SYNC, kind, address, high, low, 0};
  frame[I2M_CHECKSUM_AT] = Sum({frame.data(), I2M_CHECKSUM_AT});
  answers_.push_back({.due = now_ + traits.answer_after, .frame = frame});
}

}  // namespace sim
