// Opening what has to be a file.
#pragma once

#include <cstdio>

// Opens the regular file `path` for reading. Anything else of that name (a directory, a pipe that
// nobody writes) is no such file and does not hold the caller. Returns null with errno set when
// there is none; the caller closes it. Any thread may call.
FILE* CUTIL_OpenRegular(const char* path);
