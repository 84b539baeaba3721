// Parses a pasted line: hexadecimal digits, a row of a dump, or a line of the daemon's trace. Does
// no I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/frame_words.h"

namespace tools {

struct HexLine {
  std::vector<uint8_t> bytes;
  bool is_dump = false;  // a row of a dump
  bool is_trace = false;
  Direction direction = Direction::kUnknown;  // of a trace line
  std::string time;                           // of a trace line, unchanged
  std::string problem;                        // error message, or ""
};

// Reads bytes as ReadHexBytes does, a row of a dump ("00000000  FF 01  |..|"), or a line of the
// trace ("11/22 21:50:33.357466   SEND    7: FF 01").
HexLine ReadHexLine(std::string_view text);

// Returns true if the line ends a dump of `count` bytes: it contains only the end offset.
bool IsDumpEnd(std::string_view text, size_t count);

}  // namespace tools
