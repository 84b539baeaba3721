// The bytes of one execution, taken piece by piece.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace fuzz {

class Input {
 public:
  Input(const uint8_t* data, size_t size) : left_(data, size) {}

  bool IsEmpty() const { return left_.empty(); }

  // The next byte, 0 at the end.
  uint8_t Byte() {
    if (left_.empty()) return 0;
    const uint8_t byte = left_[0];
    left_ = left_.subspan(1);
    return byte;
  }

  // A 16-bit and a 32-bit number, little-endian.
  uint16_t Word() {
    const unsigned low = Byte();
    return static_cast<uint16_t>(low | static_cast<unsigned>(Byte()) << 8);
  }
  uint32_t Long() {
    const uint32_t low = Word();
    return low | static_cast<uint32_t>(Word()) << 16;
  }

  // The next `count` bytes, fewer at the end. They belong to the caller of the target.
  std::span<const uint8_t> Bytes(size_t count) {
    const auto bytes = left_.first(std::min(count, left_.size()));
    left_ = left_.subspan(bytes.size());
    return bytes;
  }
  std::span<const uint8_t> Rest() { return Bytes(left_.size()); }

  // The text up to the next line feed, which is passed over; one with a NUL ends there.
  std::string Line() {
    std::string line;
    while (!left_.empty()) {
      const char c = static_cast<char>(Byte());
      if (c == '\n') break;
      line += c;
    }
    return line.substr(0, line.find('\0'));
  }

 private:
  std::span<const uint8_t> left_;
};

inline std::string Text(std::span<const uint8_t> bytes) {
  return {bytes.begin(), bytes.end()};
}

}  // namespace fuzz
