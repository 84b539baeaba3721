#include "sim/pelco_decoder.h"

#include <algorithm>

namespace sim {
namespace {

bool IsFrame(std::span<const uint8_t> bytes) {
  PelcoFrame frame;
  std::copy_n(bytes.begin(), frame.size(), frame.begin());
  return frame[PELCO_ADDRESS_AT] == PELCO_ADDRESS &&
         frame[PELCO_CHECKSUM_AT] == PelcoChecksum(frame);
}

}  // namespace

bool IsPelcoExtended(const PelcoFrame& frame) {
  return (frame[PELCO_COMMAND2_AT] & PELCO_EXTENDED_BIT) != 0;
}

void PelcoDecoder::Feed(std::span<const uint8_t> bytes) {
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  Scan(false);
}

void PelcoDecoder::Flush() {
  Scan(true);
}

void PelcoDecoder::Scan(bool final) {
  Bytes noise;
  size_t at = 0;
  const auto hand_noise_out = [&] {
    if (!noise.empty()) on_noise(noise);
    noise.clear();
  };
  while (at < pending_.size()) {
    const std::span<const uint8_t> rest(pending_.begin() + static_cast<std::ptrdiff_t>(at),
                                        pending_.end());
    const bool whole = rest.size() >= PELCO_FRAME_SIZE;
    if (rest[0] == PELCO_SYNC && !whole && !final) break;
    if (rest[0] == PELCO_SYNC && whole && IsFrame(rest)) {
      hand_noise_out();
      PelcoFrame frame;
      std::copy_n(rest.begin(), frame.size(), frame.begin());
      on_frame(frame);
      at += frame.size();
    } else {
      noise.push_back(rest[0]);
      ++at;
    }
  }
  hand_noise_out();
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(at));
}

}  // namespace sim
