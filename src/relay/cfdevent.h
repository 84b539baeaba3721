// CFDEVENT: a set of descriptors to watch for input.
//
// A table of descriptors, one wait over all of them, and a test of each after the wait. The set
// is a value of its owner and watches descriptors that it does not own. Main thread only.
//
// The daemon uses the table alone: the pass waits for more sources than these, with a poll of its
// own, and calls neither Wait nor IsSet.
#pragma once

#include <sys/select.h>

constexpr int CFDEVENT_MAX_FDS = 128;

// Results of CFDEVENT::Wait below zero.
enum CfdeventWaitError : int {
  CFDEVENT_WAIT_TIMEOUT = -1,
  CFDEVENT_WAIT_FAILED = -2,
  CFDEVENT_WAIT_EMPTY = -3,
};

struct CFDEVENT {
  int debug;                  // non-zero: print every operation on standard output
  int fds[CFDEVENT_MAX_FDS];  // registered descriptors without gaps, free slots hold -1
  fd_set fdset;               // ready set of the last wait
  int reg_count;              // number of registered descriptors

  // Sets the count to 0. The slots stay as they are: what is added afterwards brings the old
  // descriptors back into view.
  void (*Deinit)(CFDEVENT* self);

  // Registers a descriptor below FD_SETSIZE. One added twice takes two slots. Returns its slot,
  // or -1 when the table is full or the descriptor does not fit a set.
  int (*Add)(CFDEVENT* self, int fd);

  // Removes the first slot that holds `fd`, closing the gap. Returns 0, also when there is none.
  int (*Del)(CFDEVENT* self, int fd);

  // Waits until a registered descriptor is readable, at most `ms` milliseconds (0 polls).
  // Returns 0 when one is, or a CfdeventWaitError.
  int (*Wait)(CFDEVENT* self, int ms);

  // Returns 0 when `fd` was readable in the last wait, -1 otherwise.
  int (*IsSet)(CFDEVENT* self, int fd);
};

// Makes an empty set. Returns 0.
int CFDEVENT_Init(CFDEVENT* self);
