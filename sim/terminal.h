// The terminal of a live screen, drawn with ncurses. Only one may exist at a time.
//
// Texts are UTF-8, one cell per character. A terminal without UTF-8 shows ASCII replacements.
#pragma once

// The ncurses macros would redefine common names such as "move" and "timeout".
#define NCURSES_NOMACROS 1
#define NCURSES_WIDECHAR 1
#include <curses.h>

#include <climits>
#include <memory>
#include <string>
#include <string_view>

namespace sim {

struct Style {
  short color;  // -1 is the terminal's own
  attr_t attributes;
};

constexpr Style kPlain = {-1, A_NORMAL};
constexpr Style kDim = {-1, A_DIM};              // frames, minor details
constexpr Style kTitle = {-1, A_REVERSE};        // the bar at the top
constexpr Style kHead = {COLOR_CYAN, A_NORMAL};  // headings
constexpr Style kValue = {-1, A_BOLD};           // figures
constexpr Style kBar = {COLOR_GREEN, A_NORMAL};  // the filled part of a gauge
constexpr Style kMark = {COLOR_YELLOW, A_BOLD};  // the target of a gauge

// A rectangle of cells.
struct Area {
  int row;
  int col;
  int rows;
  int cols;

  // The area inside its frame.
  Area Inner() const { return {row + 1, col + 2, rows - 2, cols - 4}; }
};

class Terminal {
 public:
  // Opens the terminal on standard input and output; null if it cannot be drawn on.
  static std::unique_ptr<Terminal> Open();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  // Restores the terminal.
  ~Terminal();

  // Writes at most `width` cells of a text; an ellipsis marks truncation.
  void Write(int row, int col, std::string_view text, const Style& style = kPlain,
             int width = INT_MAX) const;

  // Clears an area and draws a frame with a heading around it.
  void Frame(const Area& area, const std::string& heading) const;

 private:
  explicit Terminal(bool utf8);
  std::wstring Characters(std::string_view text) const;

  bool utf8_;
};

// True if TERM names a terminal that understands escape sequences.
bool IsCapableTerminal();

// True on such a terminal, unless NO_COLOR is set.
bool AllowsColors();

// The number of characters of a UTF-8 text.
int Length(std::string_view text);

// Restores the normal screen after another process died without doing so.
void LeaveScreen();

}  // namespace sim
