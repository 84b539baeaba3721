#include "tools/frame_texts.h"

#include <array>

#include "lens/i2m.h"
#include "lens/speed_table.h"

namespace tools {
namespace {

std::string StepsWords(uint16_t value) {
  const int steps = static_cast<int16_t>(value);
  return "move " + Signed(steps) + (steps == 1 || steps == -1 ? " step" : " steps");
}

std::string IrisWords(uint16_t value) {
  const int steps = static_cast<int16_t>(value);
  return StepsWords(value) + (steps > 0 ? " (opens)" : steps < 0 ? " (closes)" : "");
}

// The value 1 moves in the direction of the daemon's positive command, toward zero.
std::string JogWords(uint16_t value) {
  switch (value) {
    case I2M_JOG_NEGATIVE:
      return "move toward the maximum";
    case I2M_JOG_POSITIVE:
      return "move toward 0";
    case I2M_JOG_STOP:
      return "stop";
    default:
      return "unknown jog value " + HexNumber(value, 4);
  }
}

std::string RateWords(uint16_t value) {
  const MotorSpeed* speed = FindRow(MOTOR_SPEEDS, value, &MotorSpeed::code);
  if (speed == nullptr) return "unknown code " + HexNumber(value, 4);
  return std::to_string(speed->pps) + " steps a second";
}

std::string NumberWords(uint16_t value) {
  return std::to_string(value);
}

std::string FocusRequestWords(uint16_t value) {
  if (value > 1) return "unknown value " + HexNumber(value, 4);
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
  const char* written;  // object of a write
  std::string (*write_words)(uint16_t value);
  const char* read;  // object of a read
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

}  // namespace

std::string LensText(std::span<const uint8_t> frame, Direction direction) {
  const uint8_t address = frame[I2M_ADDRESS_AT];
  const auto value = static_cast<uint16_t>(frame[I2M_HIGH_AT] << 8 | frame[I2M_LOW_AT]);
  const bool is_write = frame[I2M_KIND_AT] == I2M_WRITE;
  const bool is_reply =
      direction == Direction::kFromDevice || (direction == Direction::kUnknown && value != 0);
  if (is_write && address == I2M_ADDR_MFZ_MODEL && value == 0 &&
      direction != Direction::kToDevice) {
    return "query for sensor and lens model";
  }
  const RegisterRow* row = FindRow(kRegisters, address, &RegisterRow::address);
  if (row == nullptr) return UnknownRegisterText(address, value, is_write, is_reply);
  if (is_write) return std::string(row->written) + ": " + row->write_words(value);
  if (!is_reply) return std::string("read: ") + row->read;
  return std::string("reply: ") + row->read + " " + row->reply_words(value);
}

}  // namespace tools
