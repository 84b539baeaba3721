// Prints text safely. Text from modules, files and datagrams must not control the terminal, so
// control characters are printed as \xNN.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace tools {

// Returns `text` with control characters (C0, DEL, C1, and those that change the text direction or
// end a line) and bytes that are not UTF-8 as \xNN. Other text in any language is unchanged.
std::string Escaped(std::string_view text);

// Does the same for JSON text, of which json-c escapes only C0. A control character becomes \uNNNN;
// a byte that is not UTF-8, which JSON cannot represent, becomes the text \xNN.
std::string EscapedJson(std::string_view json);

// Prints like printf; escapes everything except a line feed at the end of `format`.
[[gnu::format(__printf__, 2, 3)]] void Print(FILE* stream, const char* format, ...);

// Prints text of several lines on standard output and escapes each line.
void PrintText(std::string_view text);

}  // namespace tools

// Nothing is printed past them.
#pragma GCC poison printf fprintf puts fputs putchar putc fputc
