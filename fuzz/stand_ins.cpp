#include "fuzz/stand_ins.h"

#include <sys/time.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "fuzz/check.h"
#include "relay/cptzsvr.h"
#include "util/cthread.h"
#include "util/process.h"

// The names that --wrap gives to the replacements.
int WrapPpoll(pollfd* fds, nfds_t count, const timespec* limit,
              const sigset_t* mask) asm("__wrap_ppoll");
int WrapPoll(pollfd* fds, nfds_t count, int timeout_ms) asm("__wrap_poll");
int WrapGettimeofday(timeval* now, void* zone) asm("__wrap_gettimeofday");
time_t WrapTime(time_t* out) asm("__wrap_time");
int64_t WrapMonotonicUs() asm("__wrap__Z17CUTIL_MonotonicUsv");
void WrapSleepUs(int64_t microseconds) asm("__wrap__Z13CUTIL_SleepUsl");
void WrapRunCommand(const char* format, ...) asm("__wrap__Z16CUTIL_RunCommandPKcz");
[[noreturn]] void WrapReboot() asm("__wrap__Z12CUTIL_Rebootv");
int WrapThreadInit(
    CTHREAD* self, void* arg, int (*start)(void* arg), int (*step)(void* arg),
    void (*end)(void* arg)) asm("__wrap__Z12CTHREAD_InitP7CTHREADPvPFiS1_ES3_PFvS1_E");

namespace fuzz {
namespace {

constexpr int64_t kNsPerUs = 1'000;
// Longer than any wait of the daemon.
constexpr int64_t kBetweenExecutionsUs = 1000 * kUsPerS;

int64_t g_now_us = kBetweenExecutionsUs;
CTHREAD* g_worker = nullptr;
bool g_is_worker_step = false;

int Wait(pollfd* fds, nfds_t count, int64_t limit_us) {
  if (g_waits.on_wait) g_waits.on_wait(fds, count);
  const int ready = RealPoll(fds, count, 0);
  if (ready != 0) return ready;
  if (limit_us < 0 && g_is_worker_step) return errno = EINTR, -1;
  if (limit_us < 0) Fail("a wait without a timeout");
  PassTime(limit_us);
  return 0;
}

int StartWorker(CTHREAD* self) {
  g_worker = self;
  self->state = CTHREAD_RUNNING;
  self->start_routine(self->arg);
  return 0;
}

int StopWorker(CTHREAD* self) {
  g_worker = nullptr;
  self->state = CTHREAD_STOPPED;
  self->end_routine(self->arg);
  return 0;
}

}  // namespace

int64_t NowUs() {
  return g_now_us;
}

void PassTime(int64_t us) {
  FUZZ_CHECK(us >= 0);
  g_now_us += us;
}

void BeginExecution() {
  g_now_us += kBetweenExecutionsUs;
  g_now_us -= g_now_us % kUsPerS;
  g_worker = nullptr;
  g_waits = {};
  g_commands.clear();
}

void StepWorker() {
  g_is_worker_step = true;
  if (g_worker != nullptr) g_worker->step_routine(g_worker->arg);
  g_is_worker_step = false;
}

}  // namespace fuzz

int WrapPpoll(pollfd* fds, nfds_t count, const timespec* limit, const sigset_t* /*mask*/) {
  int64_t limit_us = -1;
  if (limit != nullptr) limit_us = limit->tv_sec * fuzz::kUsPerS + limit->tv_nsec / fuzz::kNsPerUs;
  // Only the wait of a pass has more sources than the PTZ server.
  const bool is_pass = count > CPTZSVR_SOURCES && fuzz::g_waits.on_pass;
  return is_pass ? fuzz::g_waits.on_pass(fds, count, limit_us) : fuzz::Wait(fds, count, limit_us);
}

int WrapPoll(pollfd* fds, nfds_t count, int timeout_ms) {
  return fuzz::Wait(fds, count, timeout_ms < 0 ? -1 : timeout_ms * fuzz::kUsPerMs);
}

int64_t WrapMonotonicUs() {
  fuzz::PassTime(1);
  return fuzz::NowUs();
}

int WrapGettimeofday(timeval* now, void* /*zone*/) {
  const int64_t us = WrapMonotonicUs();
  *now = {.tv_sec = us / fuzz::kUsPerS, .tv_usec = us % fuzz::kUsPerS};
  return 0;
}

time_t WrapTime(time_t* out) {
  const time_t now = WrapMonotonicUs() / fuzz::kUsPerS;
  if (out != nullptr) *out = now;
  return now;
}

void WrapSleepUs(int64_t microseconds) {
  fuzz::PassTime(microseconds > 0 ? microseconds : 0);
}

void WrapRunCommand(const char* format, ...) {
  // Characters without special meaning to a shell here, and the redirections that the daemon uses.
  constexpr char kHarmless[] =
      "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz =./-_*><:~!@,()'";
  char command[CUTIL_COMMAND_SIZE] = {};
  va_list values;
  va_start(values, format);
  const int length = vsnprintf(command, sizeof(command), format, values);
  va_end(values);
  FUZZ_CHECK(length > 0 && length < CUTIL_COMMAND_SIZE);
  FUZZ_CHECK(command[strspn(command, kHarmless)] == '\0');
  fuzz::g_commands.emplace_back(command);
}

void WrapReboot() {
  FUZZ_CHECK(fuzz::g_after_reboot != nullptr);
  if (fuzz::g_worker != nullptr) fuzz::StopWorker(fuzz::g_worker);
  std::longjmp(*fuzz::g_after_reboot, 1);
}

int WrapThreadInit(CTHREAD* self, void* arg, int (*start)(void* arg), int (*step)(void* arg),
                   void (*end)(void* arg)) {
  self->state = CTHREAD_IDLE;
  self->arg = arg;
  self->start_routine = start;
  self->step_routine = step;
  self->end_routine = end;
  self->Deinit = fuzz::StopWorker;
  self->Start = fuzz::StartWorker;
  self->Stop = fuzz::StopWorker;
  return 0;
}
