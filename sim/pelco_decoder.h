// Decodes a Pelco-D byte stream.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "relay/pelco_d.h"
#include "sim/pty_line.h"

namespace sim {

// True if command 2 of the frame is an extended command (preset, auxiliary, ...).
bool IsPelcoExtended(const PelcoFrame& frame);

// Splits a stream into frames. Bytes outside a valid frame (wrong address or checksum, anything
// before a sync byte) go to on_noise, in order.
class PelcoDecoder {
 public:
  void Feed(std::span<const uint8_t> bytes);

  // Reports a partial frame as noise, when no more bytes are expected.
  void Flush();

  std::function<void(const PelcoFrame&)> on_frame = [](const PelcoFrame&) {};
  std::function<void(std::span<const uint8_t>)> on_noise = [](std::span<const uint8_t>) {};

 private:
  void Scan(bool final);

  Bytes pending_;
};

}  // namespace sim
