// Loads a whole file into memory.
#pragma once

#include <cstdint>

// Largest file that is loaded, bytes. The firmware images of a device have a few hundred KiB; the
// limit keeps a wrong file from taking all memory.
constexpr long CUTIL_LOAD_MAX = 16L * 1024 * 1024;

// Loads the regular file `path` and stores its length in bytes in `*size_out`. Neither pointer may
// be null. The path must not be a symbolic link, and the file must not exceed CUTIL_LOAD_MAX bytes.
// Returns a buffer that the caller releases with `free`; an empty file yields a buffer, too. On
// failure, prints one line on standard error, leaves `*size_out` unchanged and returns null. Blocks
// on file I/O only; any thread may call.
uint8_t* CUTIL_LoadFile(const char* path, int* size_out);
