// Reads the input bytes of one execution piece by piece.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace fuzz {

inline std::string Text(std::span<const uint8_t> bytes) {
  return {bytes.begin(), bytes.end()};
}

class Input {
 public:
  Input(const uint8_t* data, size_t size) : left_(data, size) {}

  bool IsEmpty() const { return left_.empty(); }

  // The next `count` bytes, or fewer at the end. The caller of the target owns the memory.
  std::span<const uint8_t> Bytes(size_t count) {
    const auto bytes = left_.first(std::min(count, left_.size()));
    left_ = left_.subspan(bytes.size());
    return bytes;
  }
  std::span<const uint8_t> Rest() { return Bytes(left_.size()); }

  // The next byte (0 at the end), and a 16-bit and a 32-bit little-endian number.
  uint8_t Byte() { return IsEmpty() ? 0 : Bytes(1)[0]; }
  uint16_t Word() {
    const unsigned low = Byte();
    return static_cast<uint16_t>(low | static_cast<unsigned>(Byte()) << 8);
  }
  uint32_t Long() {
    const uint32_t low = Word();
    return low | static_cast<uint32_t>(Word()) << 16;
  }

  // The text up to the next line feed, which is skipped. Ends at a NUL.
  std::string Line() {
    const auto end = std::find(left_.begin(), left_.end(), '\n');
    const std::string line = Text(Bytes(static_cast<size_t>(end - left_.begin())));
    Byte();
    return line.substr(0, line.find('\0'));
  }

 private:
  std::span<const uint8_t> left_;
};

}  // namespace fuzz
