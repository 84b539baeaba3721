#include "tools/frame_texts.h"

#include "tools/format.h"

namespace tools {

std::string HexNumber(unsigned value, int digits) {
  return Format("0x%0*X", digits, value);
}

std::string Signed(int value) {
  return Format("%+d", value);
}

std::string Count(size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace tools
