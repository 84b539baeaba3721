#include "tools/param_fields.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "tools/failure.h"
#include "tools/files.h"
#include "tools/format.h"
#include "tools/nearest_name.h"
#include "tools/parse.h"
#include "util/bytes.h"

namespace tools {

namespace {

constexpr auto kBauds = [] {
  std::array<ParamWord, SERIAL_SPEEDS.size()> rates{};
  std::ranges::transform(SERIAL_SPEEDS, rates.begin(), [](const SerialSpeed& speed) {
    return ParamWord{nullptr, speed.baud_rate};
  });
  return rates;
}();
constexpr auto kParities = std::to_array<ParamWord>({{"none", 0}, {"even", 1}, {"odd", 2}});
constexpr auto kSwitch = std::to_array<ParamWord>({{"off", 0}, {"on", 1}});

constexpr int32_t kDataBitsDefault = 8;
constexpr int32_t kPtzPortDefault = 4001;
constexpr int32_t kPortMax = INT16_MAX;  // the daemon keeps it in 16 bits, signed
constexpr int32_t kPortsMax = 255;

constexpr int32_t kBaudDefault = SERIAL_DEFAULT_SPEED.baud_rate;

constexpr auto kFields = std::to_array<ParamField>({
    {PARAM_MODEL, PARAM_MODEL_NAME, 0, "device model; selects the daemon's mode", 0, 0},
    {"serial-count", PARAM_SERIAL_COUNT, 2, "number of serial ports; the daemon needs 2", 0,
     kPortsMax},
    {"baud", PARAM_SERIAL2_BAUD, kBaudDefault, "speed of the second serial port, bits per second",
     0, 0, kBauds},
    {"parity", PARAM_SERIAL2_PARITY, 0, "parity of that port", 0, 0, kParities},
    {"data-bits", PARAM_SERIAL2_DATA_BITS, kDataBitsDefault, "its data bits", 5, 8},
    {"stop-bits", PARAM_SERIAL2_STOP_BITS, 1, "its stop bits", 1, 2},
    {"ptz-enable", PARAM_PTZ_ENABLE, 0, "PTZ TCP server", 0, 0, kSwitch},
    {"ptz-port", PARAM_PTZ_PORT, kPtzPortDefault, "TCP port of the PTZ server", 1, kPortMax},
});

std::string WordText(const ParamWord& word) {
  return word.word != nullptr ? word.word : std::to_string(word.value);
}

std::optional<int32_t> ParseValue(const ParamField& field, const std::string& text) {
  const auto word = std::ranges::find(field.words, text, WordText);
  if (word != field.words.end()) return word->value;
  const auto number = ParseNumber(text, INT32_MIN, INT32_MAX);
  return number.has_value() && IsKnown(field, *number) ? number : std::nullopt;
}

[[noreturn]] void Refuse(const std::string& text) {
  throw Failure(EXIT_STATUS_USAGE, text);
}

// Returns the value that the daemon uses: the default in place of an invalid one.
int32_t UsedValue(std::span<const uint8_t> block, const char* name) {
  const ParamField& field = FindParamField(name);
  const int32_t value = NumberIn(block, field);
  return IsKnown(field, value) ? value : field.initial;
}

}  // namespace

std::span<const ParamField> ParamFields() {
  return kFields;
}

bool IsModel(const ParamField& field) {
  return field.offset == PARAM_MODEL_NAME;
}

const ParamField& FindParamField(const std::string& name) {
  std::vector<std::string> names;
  for (const ParamField& field : kFields) {
    if (name == field.name) return field;
    names.emplace_back(field.name);
  }
  Refuse("unknown parameter " + name + DidYouMean(name, names));
}

std::string ModelIn(std::span<const uint8_t> block) {
  const char* name = reinterpret_cast<const char*>(block.data() + PARAM_MODEL_NAME);
  return {name, strnlen(name, PARAM_MODEL_MAX)};
}

int32_t NumberIn(std::span<const uint8_t> block, const ParamField& field) {
  return static_cast<int32_t>(LoadLe32(block.data() + field.offset));
}

bool IsKnown(const ParamField& field, int32_t value) {
  if (field.words.empty()) return value >= field.low && value <= field.high;
  return std::ranges::find(field.words, value, &ParamWord::value) != field.words.end();
}

std::string ParamText(const ParamField& field, int32_t value) {
  const auto word = std::ranges::find(field.words, value, &ParamWord::value);
  return word != field.words.end() ? WordText(*word) : std::to_string(value);
}

std::string AllowedText(const ParamField& field) {
  if (IsModel(field)) return "1 to " + std::to_string(PARAM_MODEL_MAX) + " characters";
  if (field.words.empty()) return Format("%d to %d", field.low, field.high);
  std::string text;
  for (const ParamWord& word : field.words)
    text += (text.empty() ? "" : ", ") + WordText(word);
  return text;
}

ParamChange ParseParamChange(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos) Refuse(text + " is not of the form NAME=VALUE");
  const ParamField& field = FindParamField(text.substr(0, equals));
  const std::string value = text.substr(equals + 1);
  if (IsModel(field)) {
    if (value.empty()) Refuse("a model name cannot be empty");
    if (value.size() > PARAM_MODEL_MAX) Refuse("a model name must have " + AllowedText(field));
    return {.field = &field, .model = value, .number = 0};
  }
  const auto number = ParseValue(field, value);
  if (!number.has_value()) {
    Refuse(std::string(field.name) + " cannot be '" + value + "'; allowed: " + AllowedText(field));
  }
  return {.field = &field, .model = {}, .number = *number};
}

void StoreParam(const ParamChange& change, uint8_t* block) {
  uint8_t* place = block + change.field->offset;
  if (IsModel(*change.field)) {
    memcpy(place, change.model.c_str(), change.model.size() + 1);
  } else {
    StoreLe32(place, static_cast<uint32_t>(change.number));
  }
}

std::vector<uint8_t> NewParamBlock() {
  std::vector<uint8_t> block(PARAM_BLOCK_SIZE);
  for (const ParamField& field : kFields) {
    StoreParam({.field = &field, .model = PARAM_MODEL_INITIAL, .number = field.initial},
               block.data());
  }
  return block;
}

SerialLine LineSettingsIn(std::span<const uint8_t> block) {
  return {.baud_rate = UsedValue(block, "baud"),
          .data_bits = UsedValue(block, "data-bits"),
          .parity = UsedValue(block, "parity"),
          .stop_bits = UsedValue(block, "stop-bits")};
}

SerialLine ReadLineSettings() {
  try {
    const std::vector<uint8_t> block = ReadFile(PARAM_BLOCK_PATH);
    if (block.size() >= PARAM_BLOCK_SIZE) return LineSettingsIn(block);
  } catch (const Failure&) {
  }
  return LineSettingsIn(NewParamBlock());
}

}  // namespace tools
