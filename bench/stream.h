// The bytes that go through a contender: every byte follows from its place, so that a lost, a
// doubled or a changed one shows at once.
#pragma once

#include <cstdint>
#include <span>

namespace bench {

// Up to `size` bytes of the stream from `offset` on; may be fewer.
std::span<const uint8_t> StreamBytes(uint64_t offset, size_t size);

// Throws Unmeasured unless `bytes` are those of the stream from `offset` on.
void CheckStream(uint64_t offset, std::span<const uint8_t> bytes);

}  // namespace bench
