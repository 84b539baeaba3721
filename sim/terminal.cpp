#include "sim/terminal.h"

#include <langinfo.h>
#include <term.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <locale>

namespace sim {
namespace {

// ASCII replacements, each below the character it replaces.
constexpr std::wstring_view kDrawn = L"─━●▼▸·…←↑↓→°×█";
constexpr std::wstring_view kAscii = L"-=Ov>.~<^v> x_";
static_assert(kDrawn.size() == kAscii.size());

wchar_t AsciiFor(wchar_t character) {
  constexpr wchar_t kAsciiEnd = 0x80;
  // Braille patterns.
  constexpr wchar_t kBraille = 0x2800;
  constexpr wchar_t kBrailleEnd = 0x2900;
  if (character < kAsciiEnd) return character;
  if (character >= kBraille && character < kBrailleEnd) return L'.';
  const size_t at = kDrawn.find(character);
  return at == std::wstring_view::npos ? L'?' : kAscii[at];
}

std::string_view Variable(const char* name) {
  const char* value = getenv(name);
  return value == nullptr ? "" : value;
}

// Number of the color pair; pair 0 is reserved.
short PairOf(short color) {
  return static_cast<short>(color + 2);
}

void SetStyle(WINDOW* window, const Style& style) {
  wattr_set(window, style.attributes,
            has_colors() && AllowsColors() ? PairOf(style.color) : short{0}, nullptr);
}

}  // namespace

std::unique_ptr<Terminal> Terminal::Open() {
  setlocale(LC_CTYPE, "");
  if (newterm(nullptr, stdout, stdin) == nullptr) return nullptr;
  return std::unique_ptr<Terminal>(new Terminal(strcmp(nl_langinfo(CODESET), "UTF-8") == 0));
}

Terminal::Terminal(bool utf8) : utf8_(utf8) {
  constexpr int kEscapeDelayMs = 25;  // timeout for the rest of an escape sequence
  cbreak();
  noecho();
  nonl();
  keypad(stdscr, TRUE);
  nodelay(stdscr, TRUE);
  set_escdelay(kEscapeDelayMs);
  curs_set(0);
  if (!has_colors() || !AllowsColors()) return;
  start_color();
  use_default_colors();
  for (short color = -1; color <= COLOR_WHITE; ++color)
    init_pair(PairOf(color), color, -1);
}

Terminal::~Terminal() {
  endwin();
}

void Terminal::Write(int row, int col, std::string_view text, const Style& style, int width) const {
  std::wstring characters = Characters(text);
  width = std::max(0, std::min(width, getmaxx(stdscr) - col));
  if (characters.size() > static_cast<size_t>(width)) {
    characters.resize(static_cast<size_t>(std::max(0, width - 1)));
    if (width > 0) characters += Characters("…");
  }
  SetStyle(stdscr, style);
  mvaddwstr(row, col, characters.c_str());
}

void Terminal::Frame(const Area& area, const std::string& heading) const {
  WINDOW* pane = derwin(stdscr, area.rows, area.cols, area.row, area.col);
  if (pane == nullptr) return;
  werase(pane);
  SetStyle(pane, kDim);
  utf8_ ? box_set(pane, nullptr, nullptr) : wborder(pane, '|', '|', '-', '-', '+', '+', '+', '+');
  wsyncup(pane);
  delwin(pane);
  Write(area.row, area.col + 2, " " + heading + " ", kHead, area.cols - 4);
}

// Replaces invalid bytes, and characters that are not one cell wide, with a question mark.
std::wstring Terminal::Characters(std::string_view text) const {
  std::wstring characters;
  const auto& utf8 =
      std::use_facet<std::codecvt<char32_t, char8_t, std::mbstate_t>>(std::locale::classic());
  const auto* from = reinterpret_cast<const char8_t*>(text.data());
  const char8_t* end = from + text.size();
  while (from < end) {
    std::mbstate_t state = {};
    const char8_t* next = from;
    char32_t character = 0;
    char32_t* taken = nullptr;
    utf8.in(state, from, end, next, &character, &character + 1, taken);
    from = std::max(next, from + 1);
    const auto wide = static_cast<wchar_t>(character == U'\t' ? U' ' : character);
    const wchar_t shown = utf8_ ? wide : AsciiFor(wide);
    characters += wcwidth(shown) == 1 ? shown : L'?';
  }
  return characters;
}

bool IsCapableTerminal() {
  const std::string_view kind = Variable("TERM");
  return !kind.empty() && kind != "dumb";
}

bool AllowsColors() {
  return IsCapableTerminal() && Variable("NO_COLOR").empty();
}

int Length(std::string_view text) {
  return static_cast<int>(std::ranges::count_if(
      text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }));
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
