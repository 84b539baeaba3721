// libfault.so: preloaded into the daemon, makes one call of a libc function fail, or all from that
// one on.
//
// The plan is read from the environment (fault_point.h) and removed before the daemon's main runs,
// so device programs do not inherit it. All other calls go to the next library, possibly the
// virtual clock. The library leaves no descriptor open and allocates no memory.
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <unwind.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/fault/fault_point.h"

namespace {

// --- Plan --------------------------------------------------------------------------------------

struct Plan {
  char call[32];  // "*": log all calls
  unsigned path;
  long nth;
  int error;
  int is_lasting;
};

Plan g_plan;
std::atomic<long> g_on_path;     // calls on the plan's path so far
std::atomic<bool> g_has_failed;  // the planned call was reached

__attribute__((constructor)) void Prepare() {
  sscanf(getenv(FAULT_POINT), "%31s %x %ld %d %d", g_plan.call, &g_plan.path, &g_plan.nth,
         &g_plan.error, &g_plan.is_lasting);
  unsetenv(FAULT_POINT);
  unsetenv("LD_PRELOAD");
}

// --- Path and subject of a call ----------------------------------------------------------------

_Unwind_Reason_Code AddFrame(_Unwind_Context* context, void* hash) {
  auto* address = reinterpret_cast<char*>(_Unwind_GetIP(context));
  dl_find_object object;
  const bool is_program =
      _dl_find_object(address, &object) == 0 && *object.dlfo_link_map->l_name == '\0';
  auto* value = static_cast<uint32_t*>(hash);
  if (is_program) {
    *value =
        *value * 31 + static_cast<uint32_t>(address - static_cast<char*>(object.dlfo_map_start));
  }
  return _URC_NO_REASON;
}

// Arguments and results are numbers and pointers, each in a register, so one type fits all
// functions of up to six arguments.
using Word = long;
using Function = Word(Word, Word, Word, Word, Word, Word);

thread_local char t_subject[96] __attribute__((tls_model("initial-exec")));

const char* OfText(Word text) {
  return reinterpret_cast<const char*>(text);
}

const char* OfSocket(Word type) {
  return (type & SOCK_DGRAM) != 0 ? "udp" : "tcp";
}

const char* OfFd(Word fd) {
  int type = 0;
  socklen_t length = sizeof(type);
  if (syscall(SYS_getsockopt, fd, SOL_SOCKET, SO_TYPE, &type, &length) == 0) return OfSocket(type);
  char link[32];
  snprintf(link, sizeof(link), "/proc/self/fd/%d", static_cast<int>(fd));
  const long count = syscall(SYS_readlinkat, AT_FDCWD, link, t_subject, sizeof(t_subject) - 1);
  t_subject[count > 0 ? count : 0] = '\0';
  return t_subject;
}

const char* OfStream(Word file) {
  return OfFd(reinterpret_cast<FILE*>(file)->_fileno);
}

const char* OfAddress(Word address) {
  const auto port = ntohs(reinterpret_cast<const sockaddr_in*>(address)->sin_port);
  snprintf(t_subject, sizeof(t_subject), "to:%d", port);
  return t_subject;
}

void WriteDown(const char* call, long number, uint32_t path, const char* subject) {
  char line[256];
  const int length =
      snprintf(line, sizeof(line), "%s %ld %08x %.96s\n", call, number, path, subject);
  const long fd =
      syscall(SYS_openat, AT_FDCWD, FAULT_LOG, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  syscall(SYS_write, fd, line, length);
  syscall(SYS_close, fd);
}

// --- Failing -----------------------------------------------------------------------------------

constexpr int kNoFault = INT32_MIN;

// Decides whether a call fails; `count` counts the calls of its function. Returns the error, or
// kNoFault.
template <typename SubjectOf>
int Next(const char* call, std::atomic<long>* count, SubjectOf subject) {
  const bool is_chosen = strcmp(call, g_plan.call) == 0;
  const bool is_record = g_plan.call[0] == '*';
  if (!is_chosen && !is_record) return kNoFault;
  if (g_has_failed) return g_plan.is_lasting != 0 ? g_plan.error : kNoFault;
  const int saved = errno;
  uint32_t path = 0;  // hash of the call path
  _Unwind_Backtrace(AddFrame, &path);
  const bool fails = is_chosen && path == g_plan.path && ++g_on_path == g_plan.nth;
  if (fails || is_record) WriteDown(call, ++*count, path, subject());
  if (fails) g_has_failed = true;
  if (fails && g_plan.error == FAULT_KILL) syscall(SYS_kill, getpid(), SIGKILL);
  errno = saved;
  return fails ? g_plan.error : kNoFault;
}

Word Failed(Word result, int error) {
  errno = error;
  return result;
}

// Sets the stream's EOF or error flag, as the real function would.
Word FailedStream(Word stream, Word result, int error) {
  auto* file = reinterpret_cast<FILE*>(stream);
  file->_flags |= error == FAULT_SHORT ? 0x10 : 0x20;
  return error == FAULT_SHORT ? result : Failed(result, error);
}

// Marks every source as ready.
Word AllReady(Word list, Word count) {
  auto* sources = reinterpret_cast<pollfd*>(list);
  for (Word i = 0; i < count; ++i)
    sources[i].revents = sources[i].fd < 0 ? 0 : POLLIN;
  return count;
}

}  // namespace

// NOLINTBEGIN(bugprone-macro-parentheses)
#define EXPORTED __attribute__((visibility("default")))

// Intercepts the daemon's calls of `name`. `failure` may use `error`; unless it returns, the call
// goes to the next library's function.
#define FAULT(name, subject, failure, ...)                                          \
  extern "C" EXPORTED Function Fault_##name __asm__(#name);                         \
  Word Fault_##name(Word a, Word b, Word c, Word d, Word e, Word f) {               \
    static std::atomic<long> count;                                                 \
    static auto* const real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, #name)); \
    const int error = Next(#name, &count, [=] { return subject; });                 \
    if (error != kNoFault) {                                                        \
      failure;                                                                      \
    }                                                                               \
    return real(a, b, c, d, e, f);                                                  \
  }

#define FAILS(result) return Failed(result, error)
#define DONE_BUT_FAILS(result) return real(a, b, c, d, e, f), Failed(result, error)
#define ENDS return error == FAULT_SHORT ? 0 : Failed(-1, error)
#define IS_CUT(size)                   \
  if (error != FAULT_SHORT) FAILS(-1); \
  size -= size / 2
#define STREAM_FAILS(file, result) return FailedStream(file, result, error)
#define IS_READY(result) return error == FAULT_READY ? (result) : Failed(-1, error)

#include "tests/fault/fault_calls.h"

// Another name of a call, or a variant with buffer checks, whose additional last argument is
// ignored.
#define ALIAS(name, other) \
  extern "C" EXPORTED __attribute__((alias(#name))) Function Fault_as_##other __asm__(#other);

ALIAS(fcntl, fcntl64)
ALIAS(fopen, fopen64)
ALIAS(fstat, fstat64)
ALIAS(mmap, mmap64)
ALIAS(open, __open64_2)
ALIAS(open, __open_2)
ALIAS(open, open64)
ALIAS(poll, __poll_chk)
ALIAS(ppoll, __ppoll_chk)
ALIAS(readdir, readdir64)
ALIAS(stat, stat64)

// NOLINTEND(bugprone-macro-parentheses)
