#include "tools/output.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdint>
#include <optional>

#include "tools/format.h"

namespace tools {

namespace {

constexpr char32_t kDelete = 0x7F;

struct Range {
  char32_t first;
  char32_t last;
};

// None is past 16 bits.
constexpr std::array<Range, 6> kControls = {{
    {0x00, 0x1F},      // C0
    {kDelete, 0x9F},   // and C1
    {0x061C, 0x061C},  // Arabic letter mark
    {0x200E, 0x200F},  // left-to-right mark, right-to-left mark
    {0x2028, 0x202E},  // line and paragraph separator, embeddings and overrides of the direction
    {0x2066, 0x2069},  // isolates of a direction
}};

bool IsControl(char32_t code) {
  return std::ranges::any_of(
      kControls, [code](const Range& range) { return code >= range.first && code <= range.last; });
}

struct Character {
  std::string_view bytes;
  std::optional<char32_t> code;  // nothing for a byte that is not UTF-8
};

// The first byte of a character, in the order of their lengths.
struct LeadByte {
  char32_t mask;
  char32_t value;
  char32_t lowest;  // a lower code has a shorter form, and this one is not UTF-8
};

constexpr std::array<LeadByte, 4> kLeadBytes = {{
    {0x80, 0x00, 0},
    {0xE0, 0xC0, 0x80},
    {0xF0, 0xE0, 0x800},
    {0xF8, 0xF0, 0x10000},
}};

bool IsUnicode(char32_t code) {
  constexpr Range kSurrogates = {0xD800, 0xDFFF};
  constexpr char32_t kLast = 0x10FFFF;
  return code <= kLast && (code < kSurrogates.first || code > kSurrogates.last);
}

// The first character of a text that is not empty.
Character FirstCharacter(std::string_view text) {
  const auto byte = [text](size_t at) -> char32_t { return static_cast<uint8_t>(text[at]); };
  const Character none = {text.substr(0, 1), std::nullopt};
  const auto* lead = std::ranges::find_if(
      kLeadBytes, [&](const LeadByte& row) { return (byte(0) & row.mask) == row.value; });
  const size_t size = 1 + static_cast<size_t>(lead - kLeadBytes.begin());
  if (lead == kLeadBytes.end() || text.size() < size) return none;
  char32_t code = byte(0) - lead->value;
  for (size_t at = 1; at < size; ++at) {
    constexpr char32_t kMask = 0xC0;
    constexpr char32_t kValue = 0x80;
    constexpr int kBits = 6;
    if ((byte(at) & kMask) != kValue) return none;
    code = (code << kBits) + byte(at) - kValue;
  }
  if (code < lead->lowest || !IsUnicode(code)) return none;
  return {text.substr(0, size), code};
}

// The text with each character as `form` of it.
template <typename Form>
std::string Rewritten(std::string_view text, Form form) {
  std::string result;
  while (!text.empty()) {
    const Character character = FirstCharacter(text);
    result += form(character);
    text.remove_prefix(character.bytes.size());
  }
  return result;
}

std::string ByteEscapes(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes)
    text += Format("\\x%02X", static_cast<uint8_t>(byte));
  return text;
}

std::string Shown(const Character& character) {
  const bool is_text = character.code.has_value() && !IsControl(*character.code);
  return is_text ? std::string(character.bytes) : ByteEscapes(character.bytes);
}

// The line feeds of a JSON text are its layout.
std::string ShownInJson(const Character& character) {
  if (!character.code.has_value()) return '\\' + ByteEscapes(character.bytes);
  if (*character.code < kDelete || !IsControl(*character.code)) return std::string(character.bytes);
  return Format("\\u%04x", static_cast<uint16_t>(*character.code));
}

void Write(FILE* stream, std::string_view text) {
  fwrite(text.data(), 1, text.size(), stream);
}

}  // namespace

std::string Escaped(std::string_view text) {
  return Rewritten(text, Shown);
}

std::string EscapedJson(std::string_view json) {
  return Rewritten(json, ShownInJson);
}

void Print(FILE* stream, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = FormatList(format, arguments);
  va_end(arguments);
  const bool ends_line = std::string_view(format).ends_with('\n');
  if (ends_line) text.pop_back();
  Write(stream, Escaped(text) + (ends_line ? "\n" : ""));
}

void PrintText(std::string_view text) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    Write(stdout, Escaped(text.substr(0, end)) + "\n");
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

}  // namespace tools
