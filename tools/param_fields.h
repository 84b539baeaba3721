// The fields of the parameter block that have names here, and what they may hold.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cmmap/param_block.h"
#include "serial/serial_port.h"

namespace tools {

// A word for a value.
struct ParamWord {
  const char* word;
  int32_t value;
};

// A field is the model name, or a number.
struct ParamField {
  const char* name;
  ParamBlockOffset offset;
  int32_t initial;  // in a block that is made new
  const char* help;
  // What it may hold: a number from low to high, or where they are given one of the values or one
  // of the words.
  int32_t low;
  int32_t high;
  std::span<const int32_t> values = {};
  std::span<const ParamWord> words = {};
};

constexpr size_t PARAM_MODEL_MAX = 127;  // characters of a model name
constexpr char PARAM_MODEL[] = "model";  // the name of its field
constexpr char PARAM_MODEL_INITIAL[] = "QB-100";

std::span<const ParamField> ParamFields();
bool IsModel(const ParamField& field);

// The field of that name. Throws Failure (EXIT_STATUS_USAGE) with the nearest name.
const ParamField& FindParamField(const std::string& name);

// What a field of a block holds.
std::string ModelIn(std::span<const uint8_t> block);
int32_t NumberIn(std::span<const uint8_t> block, const ParamField& field);

// Whether a field may hold this value. Of a line setting the daemon takes the default in place of
// any other.
bool IsKnown(const ParamField& field, int32_t value);

// A value as text: its word where it has one.
std::string ParamText(const ParamField& field, int32_t value);

// "1200, 2400, ...", "none, even, odd", "1 to 32767".
std::string AllowedText(const ParamField& field);

// One new value, checked.
struct ParamChange {
  const ParamField* field;
  std::string model;  // of the model field
  int32_t number;     // of any other
};

// Reads "NAME=VALUE". Throws Failure (EXIT_STATUS_USAGE) when it is none.
ParamChange ParseParamChange(const std::string& text);

// Stores a change in a block of PARAM_BLOCK_SIZE bytes. No other byte changes.
void StoreParam(const ParamChange& change, uint8_t* block);

// A block with every field at its initial value and zeros elsewhere.
std::vector<uint8_t> NewParamBlock();

// The serial line as the daemon sets it.
SerialLine LineSettingsIn(std::span<const uint8_t> block);

// From this device's block; the defaults where that cannot be read.
SerialLine ReadLineSettings();

}  // namespace tools
