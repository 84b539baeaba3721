// printf into a std::string.
#pragma once

#include <cstdarg>
#include <string>

namespace tools {

[[gnu::format(__printf__, 1, 2)]] std::string Format(const char* format, ...);
[[gnu::format(__printf__, 1, 0)]] std::string FormatList(const char* format, va_list arguments);

}  // namespace tools
