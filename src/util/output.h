// Output that never blocks.
//
// What the daemon prints goes to a terminal, a pipe or a socket whose reader may stop reading: a
// terminal stopped by Ctrl-S, a hung ssh session. A plain write would then hold up the daemon for
// as long. A stream of this unit drops whole lines instead, and prints how many once its reader
// reads again.
#pragma once

#include <cstdio>

// Opens an unbuffered stream on the terminal, pipe or socket `fd`. Returns null with nothing
// changed when `fd` is anything else (writing to a regular file does not wait for a reader), or
// cannot be opened anew. A terminal or pipe takes the number `fd` as a new open file that is
// non-blocking, also for the programs that the daemon starts; other processes keep theirs as it is.
// The caller closes the stream, which leaves `fd` open.
FILE* CUTIL_OpenOutput(int fd);
