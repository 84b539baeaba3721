// What a user types: numbers, durations, bytes. Nothing here does I/O.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace tools {

// A whole number from `low` to `high`, decimal or with 0x in front hexadecimal; a leading zero
// means nothing. Nothing when the text is anything else.
std::optional<int> ParseNumber(std::string_view text, int low, int high);

// Hexadecimal digits, with or without 0x in front; at most `high`.
std::optional<int> ParseHexNumber(std::string_view text, int high);

// A duration with its unit, "500ms", "2s" or "1.5s": from one millisecond to one day.
std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text);

// Bytes in hexadecimal, "FF 01 0A", "ff010a" or "0xFF 0x01": two digits a byte, white space
// between bytes at will. Nothing for any other text; no bytes for an empty one.
std::optional<std::vector<uint8_t>> ParseHexBytes(std::string_view text);

}  // namespace tools
