// Little-endian integers as bytes, for wire formats and shared files. They are assembled byte by
// byte, so host byte order and alignment do not matter.
#pragma once

#include <cstdint>

constexpr uint16_t LoadLe16(const uint8_t* bytes) {
  return static_cast<uint16_t>(bytes[0] | (bytes[1] << 8));
}

constexpr uint32_t LoadLe32(const uint8_t* bytes) {
  return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
         static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

constexpr void StoreLe16(uint8_t* bytes, uint16_t value) {
  bytes[0] = static_cast<uint8_t>(value & 0xFF);
  bytes[1] = static_cast<uint8_t>(value >> 8);
}

constexpr void StoreLe32(uint8_t* bytes, uint32_t value) {
  for (int i = 0; i < 4; ++i)
    bytes[i] = static_cast<uint8_t>(value >> (8 * i) & 0xFF);
}

// A 32-bit little-endian field of a packet structure: four bytes without alignment.
struct Le32 {
  uint8_t bytes[4];

  constexpr uint32_t Get() const { return LoadLe32(bytes); }
  constexpr int32_t GetSigned() const { return static_cast<int32_t>(LoadLe32(bytes)); }
  constexpr void Set(uint32_t value) { StoreLe32(bytes, value); }
};
static_assert(sizeof(Le32) == 4 && alignof(Le32) == 1);
