#include "util/cthread.h"

#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "util/sleep.h"

namespace {

constexpr int64_t kUsPerMs = 1000;

void RunSteps(CTHREAD* self) {
  while (self->step_routine(self->arg) >= 0 && self->state == CTHREAD_RUNNING) {
  }
}

void* CTHREAD_Main(void* object) {
  CTHREAD* self = static_cast<CTHREAD*>(object);
  if (self->start_routine == nullptr || self->start_routine(self->arg) >= 0) {
    // Only from CTHREAD_STARTING: a stop requested in the meantime must not be lost.
    int32_t expected = CTHREAD_STARTING;
    self->state.compare_exchange_strong(expected, CTHREAD_RUNNING);
    RunSteps(self);
  }
  if (self->end_routine != nullptr) self->end_routine(self->arg);
  // From here on the owner may destroy the object.
  self->state = CTHREAD_STOPPED;
  return nullptr;
}

// Returns 0, or the error number of pthread_create.
int CreateDetached(CTHREAD* self) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  // The main thread handles signals, because it is the thread they have to wake. SIGUSR2 stays
  // unblocked: a timer uses it to interrupt a call of the thread that set the timer.
  sigset_t blocked;
  sigset_t own;
  sigfillset(&blocked);
  sigdelset(&blocked, SIGUSR2);
  pthread_sigmask(SIG_SETMASK, &blocked, &own);
  pthread_t thread = {};
  const int error = pthread_create(&thread, &attributes, CTHREAD_Main, self);
  pthread_sigmask(SIG_SETMASK, &own, nullptr);
  pthread_attr_destroy(&attributes);
  return error;
}

bool HasReported(int32_t state) {
  return state == CTHREAD_RUNNING || state == CTHREAD_STOPPING || state == CTHREAD_STOPPED;
}

bool HasStopped(int32_t state) {
  return state == CTHREAD_STOPPED;
}

// Polls the state until `is_wanted` accepts it. On timeout it prints one line and returns false.
bool WaitForState(const CTHREAD* self, bool (*is_wanted)(int32_t state), const char* name) {
  for (int i = 0; i < CTHREAD_POLLS; ++i) {
    CUTIL_SleepUs(CTHREAD_POLL_MS * kUsPerMs);
    if (is_wanted(self->state)) return true;
  }
  printf("[%s] error, reason(timeout)\n", name);
  return false;
}

int CTHREAD_Start(CTHREAD* self) {
  constexpr char kName[] = "CTHREAD_Start";
  self->state = CTHREAD_STARTING;
  const int error = CreateDetached(self);
  if (error != 0) {
    printf("[%s] error, reason(pthread_create failed, %d, '%s')\n", kName, error, strerror(error));
    self->state = CTHREAD_FAILED;
    return -1;
  }
  return WaitForState(self, HasReported, kName) ? 0 : -2;
}

int CTHREAD_Stop(CTHREAD* self) {
  constexpr char kName[] = "CTHREAD_Stop";
  if (self->state == CTHREAD_FAILED) {
    printf("[%s] error, reason(error)\n", kName);
    return -1;
  }
  self->state = CTHREAD_STOPPING;
  return WaitForState(self, HasStopped, kName) ? 0 : -1;
}

int CTHREAD_Deinit(CTHREAD* self) {
  return CTHREAD_Stop(self);
}

}  // namespace

int CTHREAD_Init(CTHREAD* self, void* arg, int (*start)(void* arg), int (*step)(void* arg),
                 void (*end)(void* arg)) {
  self->arg = arg;
  self->start_routine = start;
  self->step_routine = step;
  self->end_routine = end;
  self->Deinit = CTHREAD_Deinit;
  self->Start = CTHREAD_Start;
  self->Stop = CTHREAD_Stop;
  self->state = CTHREAD_IDLE;
  return 0;
}
