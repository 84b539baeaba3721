// Reads a byte stream as Pelco-D.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "relay/pelco_d.h"
#include "sim/pty_line.h"

namespace sim {

// True for a frame whose command 2 is an extended command (preset, auxiliary, ...).
bool IsPelcoExtended(const PelcoFrame& frame);

// Cuts a stream into frames. Bytes that belong to no good frame (wrong address, wrong checksum,
// anything before a sync byte) are handed out as noise, in order.
class PelcoDecoder {
 public:
  void Feed(std::span<const uint8_t> bytes);

  // Hands the bytes of an unfinished frame out as noise: nothing more is coming.
  void Flush();

  std::function<void(const PelcoFrame&)> on_frame = [](const PelcoFrame&) {};
  std::function<void(std::span<const uint8_t>)> on_noise = [](std::span<const uint8_t>) {};

 private:
  void Scan(bool final);

  Bytes pending_;
};

}  // namespace sim
