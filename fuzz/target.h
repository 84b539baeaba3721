// The function of every fuzz target: runs one execution with the given bytes and returns 0. Runs in
// a private world (sim/world.h), never on the files of the machine.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
