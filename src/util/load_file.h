// A whole file in memory.
#pragma once

#include <cstdint>

// Most bytes of a file that is loaded. A device's firmware images have some hundred KiB; memory for
// whatever else lies there is not taken.
constexpr long CUTIL_LOAD_MAX = 16L * 1024 * 1024;

// Loads the regular file `path` (both pointers needed), which is no symbolic link and has at most
// CUTIL_LOAD_MAX bytes, and stores its length in bytes in `*size_out`. Returns a buffer that the
// caller gives back with `free`; a file of no bytes gives a buffer too. Null on failure, after one
// line on standard error; `*size_out` is then untouched. Blocks on file I/O only; any thread may
// call.
uint8_t* CUTIL_LoadFile(const char* path, int* size_out);
