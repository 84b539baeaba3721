#include "sim/canvas.h"

#include <algorithm>
#include <array>

namespace sim {
namespace {

constexpr char32_t kEllipsis = U'…';
constexpr char32_t kUnknown = U'?';
constexpr char32_t kAsciiEnd = 0x80;
// Behind ASCII come control characters again. What is below and has several bytes is none either:
// it is too long a form of another character.
constexpr char32_t kSecondControlsEnd = 0xA0;
// Patterns of 2 by 4 dots.
constexpr char32_t kBraille = 0x2800;
constexpr char32_t kBrailleEnd = 0x2900;

struct AsciiRow {
  char32_t glyph;
  char ascii;
};

constexpr std::array<AsciiRow, 19> kAscii = {{
    {U'─', '-'}, {U'│', '|'}, {U'┌', '+'}, {U'┐', '+'}, {U'└', '+'}, {U'┘', '+'}, {U'━', '='},
    {U'●', 'O'}, {U'▼', 'v'}, {U'▸', '>'}, {U'·', '.'}, {U'…', '~'}, {U'←', '<'}, {U'↑', '^'},
    {U'↓', 'v'}, {U'→', '>'}, {U'°', ' '}, {U'×', 'x'}, {U'█', '_'},
}};

// Bytes that follow the first one of a character; -1 for a byte that begins none.
int Followers(unsigned char byte) {
  if (byte < 0x80) return 0;
  if ((byte & 0xE0) == 0xC0) return 1;
  if ((byte & 0xF0) == 0xE0) return 2;
  if ((byte & 0xF8) == 0xF0) return 3;
  return -1;
}

bool IsFollower(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// Takes a character of several bytes off the text's front, or one byte that belongs to none.
char32_t TakeWide(std::string_view* text) {
  const auto first = static_cast<unsigned char>(text->front());
  const int followers = Followers(first);
  text->remove_prefix(1);
  if (followers < 1 || text->size() < static_cast<size_t>(followers)) return kUnknown;
  char32_t glyph = first & (0x3FU >> static_cast<unsigned>(followers));
  for (int i = 0; i < followers; ++i) {
    const char byte = (*text)[static_cast<size_t>(i)];
    if (!IsFollower(byte)) return kUnknown;
    glyph = glyph << 6U | (static_cast<unsigned char>(byte) & 0x3FU);
  }
  text->remove_prefix(static_cast<size_t>(followers));
  return glyph < kSecondControlsEnd ? kUnknown : glyph;
}

}  // namespace

Canvas::Canvas(int rows, int cols)
    : rows_(std::max(rows, 0)), cols_(std::max(cols, 0)), cells_(Index(rows_, 0)) {}

void Canvas::Put(int row, int col, char32_t glyph, Style style) {
  if (row < 0 || row >= rows_ || col < 0 || col >= cols_) return;
  cells_[Index(row, col)] = {glyph, style};
}

void Canvas::Write(int row, int col, std::string_view text, Style style, int width) {
  const std::u32string glyphs = Characters(text);
  const int count = static_cast<int>(glyphs.size());
  for (int i = 0; i < std::min(count, width); ++i) {
    const bool is_cut = i == width - 1 && count > width;
    Put(row, col + i, is_cut ? kEllipsis : glyphs[static_cast<size_t>(i)], style);
  }
}

void Canvas::Fill(const Area& area, char32_t glyph, Style style) {
  for (int row = area.row; row < area.row + area.rows; ++row) {
    for (int col = area.col; col < area.col + area.cols; ++col)
      Put(row, col, glyph, style);
  }
}

void Canvas::Frame(const Area& area, std::string_view heading) {
  const int bottom = area.row + area.rows - 1;
  const int right = area.col + area.cols - 1;
  for (int col = area.col; col <= right; ++col) {
    Put(area.row, col, U'─', Style::kDim);
    Put(bottom, col, U'─', Style::kDim);
  }
  for (int row = area.row; row <= bottom; ++row) {
    Put(row, area.col, U'│', Style::kDim);
    Put(row, right, U'│', Style::kDim);
  }
  Put(area.row, area.col, U'┌', Style::kDim);
  Put(area.row, right, U'┐', Style::kDim);
  Put(bottom, area.col, U'└', Style::kDim);
  Put(bottom, right, U'┘', Style::kDim);
  std::string spaced(1, ' ');
  spaced.append(heading).append(1, ' ');
  Write(area.row, area.col + 2, spaced, Style::kHead, area.cols - 4);
}

std::string Canvas::Text(int row) const {
  std::string text;
  for (int col = 0; col < cols_; ++col)
    text += Utf8(At(row, col).glyph);
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::u32string Characters(std::string_view text) {
  std::u32string glyphs;
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text.front());
    if (byte >= kAsciiEnd) {
      glyphs += TakeWide(&text);
      continue;
    }
    const bool shown = byte >= ' ' && byte != 0x7F;
    glyphs += shown ? static_cast<char32_t>(byte) : byte == '\t' ? U' ' : kUnknown;
    text.remove_prefix(1);
  }
  return glyphs;
}

std::string Utf8(char32_t glyph) {
  const auto byte = [](char32_t value) { return static_cast<char>(value); };
  if (glyph < 0x80) return {byte(glyph)};
  const char last = byte(0x80 | (glyph & 0x3F));
  if (glyph < 0x800) return {byte(0xC0 | glyph >> 6U), last};
  const char middle = byte(0x80 | (glyph >> 6U & 0x3F));
  if (glyph < 0x10000) return {byte(0xE0 | glyph >> 12U), middle, last};
  return {byte(0xF0 | glyph >> 18U), byte(0x80 | (glyph >> 12U & 0x3F)), middle, last};
}

char AsciiFor(char32_t glyph) {
  if (glyph < kAsciiEnd) return static_cast<char>(glyph);
  if (glyph >= kBraille && glyph < kBrailleEnd) return '.';
  const auto* row = std::find_if(kAscii.begin(), kAscii.end(),
                                 [glyph](const AsciiRow& each) { return each.glyph == glyph; });
  return row == kAscii.end() ? '?' : row->ascii;
}

}  // namespace sim
