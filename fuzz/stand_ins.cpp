#include "fuzz/stand_ins.h"

#include <cstdarg>
#include <cstdio>

#include "fuzz/check.h"
#include "util/cthread.h"
#include "util/process.h"

void WrapRunCommand(const char* format, ...) asm("__wrap__Z16CUTIL_RunCommandPKcz");
[[noreturn]] void WrapReboot() asm("__wrap__Z12CUTIL_Rebootv");
int WrapThreadInit(
    CTHREAD* self, void* arg, int (*start)(void* arg), int (*step)(void* arg),
    void (*end)(void* arg)) asm("__wrap__Z12CTHREAD_InitP7CTHREADPvPFiS1_ES3_PFvS1_E");

namespace fuzz {
namespace {

CTHREAD* g_worker = nullptr;

int StartWorker(CTHREAD* self) {
  g_worker = self;
  self->state = CTHREAD_RUNNING;
  if (self->start_routine != nullptr) self->start_routine(self->arg);
  return 0;
}

int StopWorker(CTHREAD* self) {
  g_worker = nullptr;
  self->state = CTHREAD_STOPPED;
  if (self->end_routine != nullptr) self->end_routine(self->arg);
  return 0;
}

// What a shell takes for plain words, and the redirections that the daemon uses.
bool IsHarmless(char c) {
  const std::string signs = " =./-_*><:~!@,()";
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         signs.find(c) != std::string::npos;
}

}  // namespace

std::jmp_buf* g_after_reboot = nullptr;

std::vector<std::string>& Commands() {
  static std::vector<std::string> commands;
  return commands;
}

void StepWorker() {
  if (g_worker != nullptr) g_worker->step_routine(g_worker->arg);
}

}  // namespace fuzz

void WrapRunCommand(const char* format, ...) {
  char command[CUTIL_COMMAND_SIZE] = {};
  va_list values;
  va_start(values, format);
  const int length = vsnprintf(command, sizeof(command), format, values);
  va_end(values);
  FUZZ_CHECK(length > 0 && length < CUTIL_COMMAND_SIZE);
  for (int i = 0; i < length; ++i)
    FUZZ_CHECK(fuzz::IsHarmless(command[i]));
  fuzz::Commands().emplace_back(command);
}

void WrapReboot() {
  FUZZ_CHECK(fuzz::g_after_reboot != nullptr);
  fuzz::g_worker = nullptr;
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
