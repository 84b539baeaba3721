// Output that never blocks.
//
// The daemon prints to a terminal, a pipe or a socket whose reader may stop reading: a terminal
// stopped by Ctrl-S, a hung ssh session. A plain write would then block the daemon. A stream of
// this unit drops whole lines instead and reports their number once the reader reads again.
#pragma once

#include <cstdio>

// Opens an unbuffered stream on the terminal, pipe or socket `fd`. Returns null and changes nothing
// if `fd` is anything else (a write to a regular file does not wait for a reader) or if memory is
// short. Reopens a terminal or pipe in non-blocking mode under the same descriptor number. Only
// child processes share the new open file; other processes keep their blocking one. If it cannot be
// reopened, the stream polls for room before each write. Text that could not be written is retried
// with the next line and on close. The caller closes the stream; `fd` stays open.
FILE* CUTIL_OpenOutput(int fd);
