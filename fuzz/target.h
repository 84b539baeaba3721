// What every fuzz target defines: one execution with the bytes given. Returns 0. Runs in a private
// world (sim/world.h), never on the machine's own files.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
