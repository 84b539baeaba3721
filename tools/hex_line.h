// Bytes as people paste them: a line of hexadecimal digits, or of the daemon's trace. Free of I/O.
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
  std::string time;                           // of a trace line, as it stands there
  std::string problem;                        // what is wrong with it; "" when nothing is
};

// Reads bytes as ReadHexBytes does, a row of a dump ("00000000  FF 01  |..|"), or a line of the
// trace ("11/22 21:50:33.357466   SEND    7: FF 01").
HexLine ReadHexLine(std::string_view text);

// Whether a line is the end of a dump of `count` bytes: the offset behind them, alone.
bool IsDumpEnd(std::string_view text, size_t count);

}  // namespace tools
