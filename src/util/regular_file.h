// Opens a path only if it is a regular file.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <limits>

// As `max_bytes`: no limit.
constexpr off_t CUTIL_ANY_LENGTH = std::numeric_limits<off_t>::max();
// Largest settings file, bytes. The device never writes a larger one, and reading one would block
// the caller for a long time.
constexpr off_t CUTIL_SETTINGS_MAX = off_t{1024} * 1024;

// Opens the regular file `path` for reading, with additional open(2) `flags`. Never blocks on
// anything else of that name, such as a pipe without a writer. Returns null with errno set on
// failure: EINVAL if it is not a regular file, EFBIG if it exceeds `max_bytes`. The caller closes
// the file. Any thread may call.
FILE* CUTIL_OpenRegular(const char* path, int flags = 0, off_t max_bytes = CUTIL_ANY_LENGTH);

// Opens a settings file in the same way; prints one line on standard output if it is too long.
FILE* CUTIL_OpenSettings(const char* path, off_t max_bytes = CUTIL_SETTINGS_MAX);
