// Finds where a frame of each protocol begins and ends. Does no I/O and keeps no state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/frame_words.h"

namespace tools {

// Bytes that may begin with a frame.
struct Look {
  std::span<const uint8_t> rest;  // at least one byte
  Direction direction;
  bool is_final;    // no more bytes follow
  bool is_lenient;  // the user chose the protocol: accept less evidence of a damaged frame
};

struct Match {
  enum Kind : uint8_t {
    kNo,    // no frame begins here
    kMore,  // a frame may begin here, but the bytes end first
    kGood,
    kBadChecksum,
  };
  Kind kind = kNo;
  size_t size = 0;          // of the frame, kGood and kBadChecksum
  bool is_evident = false;  // kMore: there are enough bytes to call it an incomplete frame
  unsigned found = 0;       // checksums, kBadChecksum
  unsigned expected = 0;
};

struct LineProtocol {
  Protocol protocol;
  Match (*match)(const Look& look);
  std::string (*text)(std::span<const uint8_t> frame, Direction direction);
  int checksum_digits;  // hexadecimal
};

// Returns the protocols to try, the preferred one first: all of them, or those of one choice.
std::vector<LineProtocol> LineProtocols(Protocol protocol);

}  // namespace tools
