// Where the preloaded clock (libclock.so) is told how far off the wall clock is.
#pragma once

#include <atomic>
#include <cstdint>

// Variable of the environment that names a file of one ClockOffset.
constexpr char SOAK_CLOCK[] = "SOAK_CLOCK";

// Nanoseconds that are added to the wall clock.
using ClockOffset = std::atomic<int64_t>;
static_assert(sizeof(ClockOffset) == sizeof(int64_t) && ClockOffset::is_always_lock_free);
