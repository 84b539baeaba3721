#include "tools/format.h"

#include <cstdio>

namespace tools {

std::string Format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = FormatList(format, arguments);
  va_end(arguments);
  return text;
}

std::string FormatList(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  std::string text(static_cast<size_t>(vsnprintf(nullptr, 0, format, again)), '\0');
  va_end(again);
  vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

}  // namespace tools
