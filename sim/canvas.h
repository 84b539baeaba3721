// A sheet of character cells to draw on, without a terminal.
//
// Texts are UTF-8; every character takes one cell. What falls outside the sheet is cut off.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

enum class Style {
  kPlain,
  kDim,    // frames, what is of little interest
  kTitle,  // the bar at the top
  kHead,   // headings
  kValue,  // figures
  kBar,    // the way that a gauge has gone
  kMark,   // where something should be
  kWarn,
};

struct Cell {
  char32_t glyph = U' ';
  Style style = Style::kPlain;
};

// A rectangle of cells.
struct Area {
  int row = 0;
  int col = 0;
  int rows = 0;
  int cols = 0;

  // What is left of it within a frame.
  Area Inner() const { return {row + 1, col + 2, rows - 2, cols - 4}; }
};

class Canvas {
 public:
  Canvas(int rows, int cols);

  int Rows() const { return rows_; }
  int Cols() const { return cols_; }
  const Cell& At(int row, int col) const { return cells_[Index(row, col)]; }

  void Put(int row, int col, char32_t glyph, Style style = Style::kPlain);

  // Writes a text, at most `width` cells of it; one that is cut ends in an ellipsis.
  void Write(int row, int col, std::string_view text, Style style, int width);
  void Write(int row, int col, std::string_view text, Style style = Style::kPlain) {
    Write(row, col, text, style, cols_ - col);
  }

  void Fill(const Area& area, char32_t glyph, Style style);
  void Frame(const Area& area, std::string_view heading);

  // A row as UTF-8, without the blanks at its end.
  std::string Text(int row) const;

 private:
  size_t Index(int row, int col) const {
    return static_cast<size_t>(row) * static_cast<size_t>(cols_) + static_cast<size_t>(col);
  }

  int rows_;
  int cols_;
  std::vector<Cell> cells_;
};

// The characters of a UTF-8 text. A byte that belongs to none, and a control character, becomes
// one that can be shown.
std::u32string Characters(std::string_view text);

// A character in UTF-8.
std::string Utf8(char32_t glyph);

// What stands for a character where only ASCII can be shown.
char AsciiFor(char32_t glyph);

}  // namespace sim
