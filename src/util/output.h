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
// when there is no memory. A terminal or pipe is opened anew in the place of `fd`, non-blocking for
// the daemon and the programs that it starts, while other processes keep theirs as it is. Where
// that cannot be done the stream asks for room before each write. What could not be written is
// tried again with the next line, and when the stream is closed. The caller closes it; `fd` stays
// open.
FILE* CUTIL_OpenOutput(int fd);
