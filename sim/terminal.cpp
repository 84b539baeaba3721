#include "sim/terminal.h"

// Its macros would take names like "move" and "timeout" from everyone.
#define NCURSES_NOMACROS 1
#define NCURSES_WIDECHAR 1
#include <curses.h>
#include <langinfo.h>
#include <term.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <cstring>

#include "sim/live_keys.h"

namespace sim {
namespace {

struct Look {
  Style style;
  short color;  // of the text; -1 is the terminal's own
  attr_t attributes;
};

constexpr short kOwnColor = -1;

constexpr std::array<Look, 8> kLooks = {{
    {Style::kPlain, kOwnColor, A_NORMAL},
    {Style::kDim, kOwnColor, A_DIM},
    {Style::kTitle, kOwnColor, A_REVERSE},
    {Style::kHead, COLOR_CYAN, A_NORMAL},
    {Style::kValue, kOwnColor, A_BOLD},
    {Style::kBar, COLOR_GREEN, A_NORMAL},
    {Style::kMark, COLOR_YELLOW, A_BOLD},
    {Style::kWarn, COLOR_RED, A_BOLD},
}};

struct KeyRow {
  int code;  // of the terminal library
  int key;
};

constexpr std::array<KeyRow, 12> kKeys = {{
    {KEY_UP, kKeyUp},
    {KEY_DOWN, kKeyDown},
    {KEY_LEFT, kKeyLeft},
    {KEY_RIGHT, kKeyRight},
    {KEY_PPAGE, kKeyPageUp},
    {KEY_NPAGE, kKeyPageDown},
    {KEY_BACKSPACE, kKeyBackspace},
    {0x7F, kKeyBackspace},
    {'\b', kKeyBackspace},
    {'\n', kKeyEnter},
    {'\r', kKeyEnter},
    {0x1B, kKeyEscape},
}};

// Colors are numbered from 1 in the order of the looks.
short PairOf(size_t look) {
  return static_cast<short>(look + 1);
}

// How long an escape sequence may take to come, milliseconds.
constexpr int kEscapeDelayMs = 25;

}  // namespace

std::unique_ptr<Terminal> Terminal::Open() {
  setlocale(LC_CTYPE, "");
  if (newterm(nullptr, stdout, stdin) == nullptr) return nullptr;
  return std::unique_ptr<Terminal>(new Terminal(strcmp(nl_langinfo(CODESET), "UTF-8") == 0));
}

Terminal::Terminal(bool utf8) : utf8_(utf8) {
  cbreak();
  noecho();
  nonl();
  keypad(stdscr, TRUE);
  nodelay(stdscr, TRUE);
  set_escdelay(kEscapeDelayMs);
  curs_set(0);
  if (!has_colors()) return;
  start_color();
  use_default_colors();
  for (size_t i = 0; i < kLooks.size(); ++i)
    init_pair(PairOf(i), kLooks[i].color, kOwnColor);
}

Terminal::~Terminal() {
  endwin();
}

int Terminal::Rows() const {
  return getmaxy(stdscr);
}

int Terminal::Cols() const {
  return getmaxx(stdscr);
}

void Terminal::Show(const Canvas& canvas) {
  const int rows = std::min(canvas.Rows(), Rows());
  const int cols = std::min(canvas.Cols(), Cols());
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      const Cell& cell = canvas.At(row, col);
      const auto look = static_cast<size_t>(cell.style);
      const std::array<wchar_t, 2> text = {
          static_cast<wchar_t>(utf8_ ? cell.glyph : static_cast<char32_t>(AsciiFor(cell.glyph))),
          L'\0'};
      cchar_t glyph = {};
      setcchar(&glyph, text.data(), kLooks[look].attributes, has_colors() ? PairOf(look) : short{0},
               nullptr);
      mvadd_wch(row, col, &glyph);
    }
  }
  refresh();
}

std::optional<int> Terminal::ReadKey() {
  const int code = getch();
  if (code == ERR) return std::nullopt;
  if (code == KEY_RESIZE) return kKeyResize;
  const auto* row = std::ranges::find(kKeys, code, &KeyRow::code);
  return row == kKeys.end() ? code : row->key;
}

void LeaveScreen() {
  int result = 0;
  if (setupterm(nullptr, STDOUT_FILENO, &result) != OK) return;
  for (const char* sequence : {exit_ca_mode, cursor_normal, exit_attribute_mode}) {
    if (sequence != nullptr) putp(sequence);
  }
  fflush(stdout);
}

}  // namespace sim
