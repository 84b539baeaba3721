#include "tools/parse.h"

#include <charconv>
#include <cmath>

namespace tools {

namespace {

constexpr int kDecimal = 10;
constexpr int kHexadecimal = 16;
constexpr std::string_view kBlanks = " \t\r\n\v\f";

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

bool AppendToken(std::string_view token, std::vector<uint8_t>* bytes) {
  constexpr size_t kDigitsOfByte = 2;
  TakeHexMark(&token);
  if (token.empty() || token.size() % kDigitsOfByte != 0) return false;
  for (; !token.empty(); token.remove_prefix(kDigitsOfByte)) {
    const std::string_view digits = token.substr(0, kDigitsOfByte);
    if (digits.front() == '-') return false;
    const auto byte = ParseDigits(digits, kHexadecimal);
    if (!byte.has_value()) return false;
    bytes->push_back(static_cast<uint8_t>(*byte));
  }
  return true;
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
  constexpr double kMsPerS = 1000;
  double unit_ms = 1;
  if (!TakeSuffix(&text, "ms")) {
    if (!TakeSuffix(&text, "s")) return std::nullopt;
    unit_ms = kMsPerS;
  }
  double value = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  const double count = std::round(value * unit_ms);
  // In this sense, so that what is no number is refused as well.
  if (!(count >= 1 && count <= static_cast<double>(kLongest.count()))) return std::nullopt;
  return milliseconds(static_cast<int64_t>(count));
}

std::optional<std::vector<uint8_t>> ParseHexBytes(std::string_view text) {
  std::vector<uint8_t> bytes;
  while (true) {
    const size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return bytes;
    text.remove_prefix(begin);
    const std::string_view token = text.substr(0, text.find_first_of(kBlanks));
    if (!AppendToken(token, &bytes)) return std::nullopt;
    text.remove_prefix(token.size());
  }
}

}  // namespace tools
