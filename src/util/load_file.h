// A whole file in memory.
#pragma once

#include <cstdint>

// Loads the regular file `path` (both pointers needed) and stores its length in bytes in
// `*size_out`. Returns a buffer that the caller gives back with `free`; a file of no bytes gives a
// buffer too. Null on failure, after one line on standard error; `*size_out` is then untouched.
// Blocks on file I/O only; any thread may call.
uint8_t* CUTIL_LoadFile(const char* path, int* size_out);
