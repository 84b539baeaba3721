// CTHREAD: runs one routine repeatedly in its own thread.
//
// A start routine runs before the first step and an end routine after the last. Start and Stop
// block the caller: they poll the shared state every CTHREAD_POLL_MS, at most CTHREAD_POLLS times.
// The worker is detached. It is never joined or cancelled, no step is interrupted, and it blocks
// all signals but SIGUSR2. The owner keeps the object alive for as long as the worker may run.
// Messages go to standard output.
#pragma once

#include <atomic>
#include <cstdint>

constexpr int CTHREAD_POLL_MS = 100;
constexpr int CTHREAD_POLLS = 30;

enum CthreadState : int32_t {
  CTHREAD_IDLE = 0,      // not started
  CTHREAD_STARTING = 1,  // being created
  CTHREAD_RUNNING = 2,   // the start routine has returned
  CTHREAD_STOPPING = 3,  // Stop was called
  CTHREAD_STOPPED = 4,   // the end routine has returned
  CTHREAD_FAILED = 5,    // creation failed; CTHREAD_Init resets it
};

struct CTHREAD {
  std::atomic<int32_t> state;  // CthreadState; written by owner and worker
  void* arg;                   // passed to each routine

  // The routines run in the worker thread. A negative result of either of the first two ends the
  // worker.
  int (*start_routine)(void* arg);  // may be null; on failure no step runs
  int (*step_routine)(void* arg);   // required
  void (*end_routine)(void* arg);   // may be null; runs whenever the thread ends

  // Same as Stop.
  int (*Deinit)(CTHREAD* self);

  // Starts the worker. Returns 0 if it is running or has already ended, -1 if the thread could not
  // be created, -2 if it did not report in time (it may still start later).
  int (*Start)(CTHREAD* self);

  // Stops the worker. Call it only after Start returned 0. Returns 0 once the worker has ended.
  // Returns -1 if its creation failed or if it did not end in time; it then still ends after the
  // current step. If the worker ended by itself or never started, Stop waits for the full timeout
  // and returns -1.
  int (*Stop)(CTHREAD* self);
};

// Initialises the object. Returns 0.
int CTHREAD_Init(CTHREAD* self, void* arg, int (*start)(void* arg), int (*step)(void* arg),
                 void (*end)(void* arg));
