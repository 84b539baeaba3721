#include "tools/output.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdint>
#include <locale>
#include <optional>

#include "tools/format.h"

namespace tools {

namespace {

constexpr char32_t kDelete = 0x7F;

struct Range {
  char32_t first;
  char32_t last;
};

// All are below 0x10000.
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
  std::optional<char32_t> code;  // nullopt: a byte that is not UTF-8
};

// Returns the first character of a non-empty text.
Character FirstCharacter(std::string_view text) {
  static const auto& utf8 =
      std::use_facet<std::codecvt<char32_t, char8_t, std::mbstate_t>>(std::locale::classic());
  const auto* begin = reinterpret_cast<const char8_t*>(text.data());
  const char8_t* next = begin;
  char32_t code = 0;
  char32_t* end = &code;
  std::mbstate_t state = {};
  utf8.in(state, begin, begin + text.size(), next, &code, &code + 1, end);
  // The facet accepts surrogates.
  constexpr Range kSurrogates = {0xD800, 0xDFFF};
  const bool is_valid = end != &code && (code < kSurrogates.first || code > kSurrogates.last);
  if (!is_valid) return {text.substr(0, 1), std::nullopt};
  return {text.substr(0, static_cast<size_t>(next - begin)), code};
}

// Converts each character of the text with `form`.
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

// Line feeds in JSON text are layout, not contents.
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
