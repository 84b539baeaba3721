// The named fields of the parameter block, and their valid values.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cmmap/param_block.h"
#include "serial/serial_port.h"

namespace tools {

// A valid value and its name on the command line; null: the number itself.
struct ParamWord {
  const char* word;
  int32_t value;
};

// A field: the model name, or a number.
struct ParamField {
  const char* name;
  ParamBlockOffset offset;
  int32_t initial;  // in a new block
  const char* help;
  // Valid values: from low to high, or, if given, one of the words.
  int32_t low;
  int32_t high;
  std::span<const ParamWord> words = {};
};

constexpr size_t PARAM_MODEL_MAX = 127;  // characters of a model name
constexpr char PARAM_MODEL[] = "model";  // the name of its field
constexpr char PARAM_MODEL_INITIAL[] = "QB-100";

std::span<const ParamField> ParamFields();
bool IsModel(const ParamField& field);

// Returns the field with this name. Throws Failure (EXIT_STATUS_USAGE) with the nearest name.
const ParamField& FindParamField(const std::string& name);

// Return the value of a field in a block.
std::string ModelIn(std::span<const uint8_t> block);
int32_t NumberIn(std::span<const uint8_t> block, const ParamField& field);

// Returns true if the value is valid for the field. The daemon replaces an invalid line setting by
// its default.
bool IsKnown(const ParamField& field, int32_t value);

// Returns a value as text: its word if it has one.
std::string ParamText(const ParamField& field, int32_t value);

// "1200, 2400, ...", "none, even, odd", "1 to 32767".
std::string AllowedText(const ParamField& field);

// One validated change.
struct ParamChange {
  const ParamField* field;
  std::string model;  // of the model field
  int32_t number;     // of any other
};

// Parses "NAME=VALUE". Throws Failure (EXIT_STATUS_USAGE) if it is invalid.
ParamChange ParseParamChange(const std::string& text);

// Applies a change to a block of PARAM_BLOCK_SIZE bytes. No other byte changes.
void StoreParam(const ParamChange& change, uint8_t* block);

// Returns a block with every field at its initial value and zeros elsewhere.
std::vector<uint8_t> NewParamBlock();

// Returns the settings of the serial line that the daemon uses for this block.
SerialLine LineSettingsIn(std::span<const uint8_t> block);

// Does the same for this device's block; returns the defaults if it cannot be read.
SerialLine ReadLineSettings();

}  // namespace tools
