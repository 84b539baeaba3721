#include "tools/frame_texts.h"

#include <array>
#include <cstdio>

namespace tools {

std::string HexNumber(unsigned value, int digits) {
  std::array<char, 16> text;
  snprintf(text.data(), text.size(), "0x%0*X", digits, value);
  return text.data();
}

std::string Signed(int value) {
  std::array<char, 16> text;
  snprintf(text.data(), text.size(), "%+d", value);
  return text.data();
}

std::string Count(size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace tools
