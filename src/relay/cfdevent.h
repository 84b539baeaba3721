// CFDEVENT: a set of descriptors to watch for input.
//
// A table of descriptors, a wait over all of them, and a test of each one after the wait. The set
// does not own the descriptors. Main thread only.
//
// The daemon uses only the table: the pass polls the table together with further descriptors and
// calls neither Wait nor IsSet.
#pragma once

#include <sys/select.h>

constexpr int CFDEVENT_MAX_FDS = 128;

// Negative results of CFDEVENT::Wait.
enum CfdeventWaitError : int {
  CFDEVENT_WAIT_TIMEOUT = -1,
  CFDEVENT_WAIT_FAILED = -2,
  CFDEVENT_WAIT_EMPTY = -3,
};

struct CFDEVENT {
  int debug;                  // non-zero: print every operation on standard output
  int fds[CFDEVENT_MAX_FDS];  // registered descriptors without gaps; free slots hold -1
  fd_set fdset;               // readable descriptors of the last wait
  int reg_count;              // number of registered descriptors

  // Sets the count to 0 but leaves the descriptors in their slots. Call CFDEVENT_Init before using
  // the set again.
  void (*Deinit)(CFDEVENT* self);

  // Registers a descriptor below FD_SETSIZE. A descriptor added twice takes two slots. Returns its
  // slot, or -1 if the table is full or the descriptor is too large.
  int (*Add)(CFDEVENT* self, int fd);

  // Removes the first slot that holds `fd` and closes the gap. Returns 0, even if `fd` is not
  // registered.
  int (*Del)(CFDEVENT* self, int fd);

  // Waits at most `ms` milliseconds until a registered descriptor is readable (0 polls). Returns 0
  // if one is, else a CfdeventWaitError. CFDEVENT_WAIT_EMPTY leaves the result of the previous wait
  // in place for IsSet.
  int (*Wait)(CFDEVENT* self, int ms);

  // Returns 0 if the last wait found `fd` readable, else -1.
  int (*IsSet)(CFDEVENT* self, int fd);
};

// Initialises an empty set. Returns 0.
int CFDEVENT_Init(CFDEVENT* self);
