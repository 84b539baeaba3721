// What a user types: numbers, durations, bytes. Nothing here does I/O.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

// A whole number from `low` to `high`, decimal or with 0x in front hexadecimal; a leading zero
// means nothing. Nothing when the text is anything else.
std::optional<int> ParseNumber(std::string_view text, int low, int high);

// Hexadecimal digits, with or without 0x in front; at most `high`.
std::optional<int> ParseHexNumber(std::string_view text, int high);

// A duration with its unit, "500ms", "1.5s", "2m" or "1h": from one millisecond to one day.
std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text);

// What is wrong with a duration, or "".
std::string CheckDuration(const std::string& text);

// Takes the next piece of `text` between characters of `ends`; "" when there is none.
std::string_view TakeToken(std::string_view* text, std::string_view ends);

// Appends bytes in hexadecimal: "FF 01", "ff01", "0xFF,0x01", "{0xFF, 0x1}", "\xFF\x01", "FF:01".
// Returns what is wrong with them, or "".
std::string ReadHexBytes(std::string_view text, std::vector<uint8_t>* bytes);

}  // namespace tools
