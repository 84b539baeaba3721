// CTHREAD: one routine run over and over in a thread of its own.
//
// A start routine runs before the first step and an end routine after the last. Starting and
// stopping block the caller, who looks at the shared state every CTHREAD_POLL_MS until the worker
// has got there, CTHREAD_POLLS times at most. The worker is detached: nobody joins or cancels
// it, a step is never interrupted, and signals go to other threads. The object is a value of its
// owner, who keeps it alive for as long as the worker may run. Messages go to standard output.
#pragma once

#include <atomic>
#include <cstdint>

constexpr int CTHREAD_POLL_MS = 100;
constexpr int CTHREAD_POLLS = 30;

enum CthreadState : int32_t {
  CTHREAD_IDLE = 0,      // not started
  CTHREAD_STARTING = 1,  // being created
  CTHREAD_RUNNING = 2,   // its start routine is done
  CTHREAD_STOPPING = 3,  // asked to stop
  CTHREAD_STOPPED = 4,   // its end routine is done
  CTHREAD_FAILED = 5,    // could not be created; CTHREAD_Init leads back
};

struct CTHREAD {
  std::atomic<int32_t> state;  // CthreadState; written by both sides
  void* arg;                   // handed to each routine

  // The worker's routines; all run in its thread. A negative result of the first two ends it.
  int (*start_routine)(void* arg);  // may be null; a failure leaves out the steps
  int (*step_routine)(void* arg);   // needed
  void (*end_routine)(void* arg);   // may be null; runs whenever the thread ends

  // Same as Stop.
  int (*Deinit)(CTHREAD* self);

  // Starts the worker. Returns 0 once it runs or has ended already, -1 when it could not be
  // created, -2 when it did not report in time (it may still come up).
  int (*Start)(CTHREAD* self);

  // Asks the worker to stop; only after Start returned 0. Returns 0 once it has, -1 when it
  // could not be created or did not stop in time (it still ends after its present step). For a
  // worker that ended by itself, or never started, the whole time passes and -1 is returned.
  int (*Stop)(CTHREAD* self);
};

// Fills the object. Returns 0.
int CTHREAD_Init(CTHREAD* self, void* arg, int (*start)(void* arg), int (*step)(void* arg),
                 void (*end)(void* arg));
