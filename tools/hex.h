// Bytes in hexadecimal.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tools {

// "FF 01 0A".
std::string Hex(std::span<const uint8_t> bytes);

}  // namespace tools
