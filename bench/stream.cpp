#include "bench/stream.h"

#include <algorithm>
#include <array>
#include <random>
#include <string>

#include "bench/running.h"

namespace bench {
namespace {

// The stream repeats itself after a prime number of bytes, so that no power of two fits it; what
// is handed out in one piece may run beyond the end of the first period.
constexpr size_t kPeriod = 65521;
constexpr size_t kPiece = 1 << 20;

const std::array<uint8_t, kPeriod + kPiece>& Stream() {
  static const auto kStream = [] {
    std::array<uint8_t, kPeriod + kPiece> stream;
    std::mt19937 random(1);  // NOLINT(bugprone-random-generator-seed): the same in every run
    for (size_t i = 0; i < stream.size(); ++i)
      stream[i] = i < kPeriod ? static_cast<uint8_t>(random()) : stream[i - kPeriod];
    return stream;
  }();
  return kStream;
}

}  // namespace

std::span<const uint8_t> StreamBytes(uint64_t offset, size_t size) {
  return {Stream().data() + offset % kPeriod, std::min(size, kPiece)};
}

void CheckStream(uint64_t offset, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const auto expected = StreamBytes(offset, bytes.size());
    if (!std::equal(expected.begin(), expected.end(), bytes.begin())) {
      throw Unmeasured("bytes lost or changed after byte " + std::to_string(offset));
    }
    bytes = bytes.subspan(expected.size());
    offset += expected.size();
  }
}

}  // namespace bench
