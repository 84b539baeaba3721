#include "tools/parse.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace tools {

namespace {

constexpr int kDecimal = 10;
constexpr int kHexadecimal = 16;
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";
constexpr std::string_view kBetweenBytes = " \t\r\n\v\f,;:-{}[]()\"'\\";

struct UnitRow {
  std::string_view suffix;
  double ms;
};

// "ms" before "s", its last letter.
constexpr std::array<UnitRow, 4> kUnits = {{{"ms", 1}, {"s", 1e3}, {"m", 60e3}, {"h", 3600e3}}};

bool TakePrefix(std::string_view* text, std::string_view prefix) {
  if (!text->starts_with(prefix)) return false;
  text->remove_prefix(prefix.size());
  return true;
}

bool TakeHexMark(std::string_view* text) {
  return TakePrefix(text, "0x") || TakePrefix(text, "0X");
}

bool TakeSuffix(std::string_view* text, std::string_view suffix) {
  if (!text->ends_with(suffix)) return false;
  text->remove_suffix(suffix.size());
  return true;
}

std::optional<int> ParseDigits(std::string_view text, int base) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// Appends the bytes of one token. Returns an error message, or "".
std::string AppendToken(std::string_view token, std::vector<uint8_t>* bytes) {
  constexpr size_t kDigitsOfByte = 2;
  std::string quoted = "'";
  quoted.append(token).append("'");
  const bool has_mark = TakeHexMark(&token);
  if (!has_mark) TakePrefix(&token, "x");  // of "\x"
  if (token.empty() || token.find_first_not_of(kHexDigits) != std::string_view::npos) {
    return quoted + " is not hexadecimal";
  }
  const bool is_short = has_mark && token.size() == 1;
  if (!is_short && token.size() % kDigitsOfByte != 0)
    return quoted + " has an odd number of digits";
  for (size_t at = 0; at < token.size(); at += kDigitsOfByte) {
    const auto byte = ParseDigits(token.substr(at, kDigitsOfByte), kHexadecimal);
    bytes->push_back(static_cast<uint8_t>(byte.value_or(0)));
  }
  return "";
}

}  // namespace

std::optional<int> ParseNumber(std::string_view text, int low, int high) {
  const bool is_hex = TakeHexMark(&text);
  if (is_hex && text.starts_with('-')) return std::nullopt;
  const auto value = ParseDigits(text, is_hex ? kHexadecimal : kDecimal);
  if (!value.has_value() || *value < low || *value > high) return std::nullopt;
  return value;
}

std::optional<int> ParseHexNumber(std::string_view text, int high) {
  TakeHexMark(&text);
  const auto value = ParseDigits(text, kHexadecimal);
  if (!value.has_value() || *value < 0 || *value > high || text.starts_with('-')) {
    return std::nullopt;
  }
  return value;
}

std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text) {
  using std::chrono::milliseconds;
  constexpr milliseconds kLongest = std::chrono::hours(24);
  const auto* unit = std::ranges::find_if(
      kUnits, [&text](const UnitRow& row) { return TakeSuffix(&text, row.suffix); });
  if (unit == kUnits.end()) return std::nullopt;
  double value = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  const double count = std::round(value * unit->ms);
  // Negated, so that NaN is rejected, too.
  if (!(count >= 1 && count <= static_cast<double>(kLongest.count()))) return std::nullopt;
  return milliseconds(static_cast<int64_t>(count));
}

std::string CheckDuration(const std::string& text) {
  if (ParseDuration(text).has_value()) return "";
  return text + " is not a duration such as 500ms, 2s or 5m, at most 24h";
}

std::string_view TakeToken(std::string_view* text, std::string_view ends) {
  text->remove_prefix(std::min(text->find_first_not_of(ends), text->size()));
  const std::string_view token = text->substr(0, text->find_first_of(ends));
  text->remove_prefix(token.size());
  return token;
}

std::string ReadHexBytes(std::string_view text, std::vector<uint8_t>* bytes) {
  while (true) {
    const std::string_view token = TakeToken(&text, kBetweenBytes);
    if (token.empty()) return "";
    std::string problem = AppendToken(token, bytes);
    if (!problem.empty()) return problem;
  }
}

}  // namespace tools
