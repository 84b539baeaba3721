// Where a frame of each protocol begins and ends. Free of I/O and of state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/frame_words.h"

namespace tools {

// Bytes to be looked at for a frame that begins with the first.
struct Look {
  std::span<const uint8_t> rest;  // at least one byte
  Direction direction;
  bool is_final;    // no more bytes are coming
  bool is_lenient;  // the user chose the protocol: less must fit for a damaged frame
};

struct Match {
  enum Kind : uint8_t {
    kNo,    // no frame begins here
    kMore,  // one may; the bytes end first
    kGood,
    kBadChecksum,
  };
  Kind kind = kNo;
  size_t size = 0;          // of the frame, kGood and kBadChecksum
  bool is_evident = false;  // kMore: enough has come to call it the start of a frame
  unsigned found = 0;       // checksums, kBadChecksum
  unsigned expected = 0;
};

struct LineProtocol {
  Protocol protocol;
  Match (*match)(const Look& look);
  std::string (*text)(std::span<const uint8_t> frame, Direction direction);
  int checksum_digits;  // hexadecimal
};

// The protocols to try, the preferred first: all, or those of one.
std::vector<LineProtocol> LineProtocols(Protocol protocol);

}  // namespace tools
