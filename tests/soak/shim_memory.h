// What the preloaded library (libshim.so) shares with whoever started the daemon.
#pragma once

#include <atomic>
#include <cstdint>

// Variable of the environment that names a file of one ShimMemory.
constexpr char SOAK_SHIM[] = "SOAK_SHIM";

struct ShimMemory {
  std::atomic<int64_t> offset_ns;  // added to the wall clock
  std::atomic<int64_t> written;    // bytes that the daemon has given to its line, or is about to
};
static_assert(std::atomic<int64_t>::is_always_lock_free);
