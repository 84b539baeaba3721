// Opening what has to be a file.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <limits>

// As the longest length: any.
constexpr off_t CUTIL_ANY_LENGTH = std::numeric_limits<off_t>::max();
// Most bytes of a settings file. One that is longer was not made by the device, and reading it
// would hold the caller for as long as it takes.
constexpr off_t CUTIL_SETTINGS_MAX = off_t{1024} * 1024;

// Opens the regular file `path` for reading, with further `flags` of open. Anything else of that
// name (a directory, a pipe that nobody writes) and a file of more than `max_bytes` is no such file
// and does not hold the caller. Returns null with errno set when there is none, EFBIG when it is
// too long; the caller closes it. Any thread may call.
FILE* CUTIL_OpenRegular(const char* path, int flags = 0, off_t max_bytes = CUTIL_ANY_LENGTH);

// The same for a file of settings, with one line on standard output for one that is too long.
FILE* CUTIL_OpenSettings(const char* path, off_t max_bytes = CUTIL_SETTINGS_MAX);
