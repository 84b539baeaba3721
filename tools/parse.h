// Parses numbers, durations and bytes typed by the user. Does no I/O.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

// Parses a whole number from `low` to `high`: decimal, also with leading zeros, or hexadecimal with
// the prefix 0x. Returns nothing if the text is invalid.
std::optional<int> ParseNumber(std::string_view text, int low, int high);

// Parses hexadecimal digits, with or without the prefix 0x; at most `high`.
std::optional<int> ParseHexNumber(std::string_view text, int high);

// Parses a duration with its unit, "500ms", "1.5s", "2m" or "1h": from one millisecond to one day.
std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text);

// Returns an error message for a duration, or "" if it is valid.
std::string CheckDuration(const std::string& text);

// Takes the next token of `text`, delimited by characters of `ends`; returns "" if there is none.
std::string_view TakeToken(std::string_view* text, std::string_view ends);

// Appends bytes given in hexadecimal: "FF 01", "ff01", "0xFF,0x01", "{0xFF, 0x1}", "\xFF\x01",
// "FF:01". Returns an error message, or "".
std::string ReadHexBytes(std::string_view text, std::vector<uint8_t>* bytes);

}  // namespace tools
