// What the tool prints. Much of it comes from the module, from files and from datagrams, and none
// of that may make a terminal do anything: whatever a terminal would obey is printed as \xNN.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace tools {

// `text` with control characters (C0, DEL, C1, and those that set the direction of text or end a
// line of it) and bytes that are not UTF-8 as \xNN. Other text of any language stays as it is.
std::string Escaped(std::string_view text);

// The same for a JSON text, of which json-c escapes C0 alone: a control character becomes \uNNNN; a
// byte that is not UTF-8, which JSON cannot hold, becomes the text \xNN.
std::string EscapedJson(std::string_view json);

// Prints as printf does, escaped but for a line feed at the end of `format`.
[[gnu::format(__printf__, 2, 3)]] void Print(FILE* stream, const char* format, ...);

// Prints a text of several lines on standard output, each of them escaped.
void PrintText(std::string_view text);

}  // namespace tools

// Nothing is printed past them.
#pragma GCC poison printf fprintf puts fputs putchar putc fputc
