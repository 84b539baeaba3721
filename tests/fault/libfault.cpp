// libfault.so: preloaded into the daemon, it makes the Nth call of a libc function fail.
//
// What is to fail is told by the environment (fault_point.h), which is gone before the daemon's
// main runs: device programs start without any of it. Time may be made to run faster for the
// daemon, clocks and waits alike, so that a start of seconds takes a fraction of one. The library
// leaves no descriptor open and takes no memory.
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>
#include <unwind.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tests/fault/fault_point.h"

namespace {

constexpr int64_t kNsPerS = 1'000'000'000;

// --- What is to happen -------------------------------------------------------------------------

struct Plan {
  char call[32];   // what fails; "" for nothing
  long first;      // the call that fails first, from 1
  int error;       // an errno, or one of FaultError
  long times;      // how often
  char log[256];   // where calls are written down
  bool is_record;  // every call, not only those that fail
  int64_t speed;   // how much faster time runs
  bool is_armed;
};

Plan g_plan;
uintptr_t g_program_begin;
uintptr_t g_program_end;
timespec g_start[2];  // of CLOCK_REALTIME and CLOCK_MONOTONIC

// Takes a variable out of the environment. Returns false when it is not there.
template <size_t size>
bool TakeVariable(const char* name, char (&out)[size]) {
  const char* value = getenv(name);
  if (value == nullptr) return false;
  snprintf(out, size, "%s", value);
  unsetenv(name);
  return true;
}

int NoteProgram(dl_phdr_info* info, size_t /*size*/, void* /*argument*/) {
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const auto& segment = info->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
    g_program_begin = info->dlpi_addr + segment.p_vaddr;
    g_program_end = g_program_begin + segment.p_memsz;
  }
  return 1;  // the program comes first
}

__attribute__((constructor)) void Prepare() {
  char text[256];
  unsetenv("LD_PRELOAD");
  TakeVariable(FAULT_LOG, g_plan.log);
  g_plan.is_record = TakeVariable(FAULT_RECORD, text);
  g_plan.speed = TakeVariable(FAULT_SPEED, text) ? atol(text) : 1;
  if (TakeVariable(FAULT_POINT, text)) {
    sscanf(text, FAULT_POINT_FORMAT, g_plan.call, &g_plan.first, &g_plan.error, &g_plan.times);
  }
  dl_iterate_phdr(NoteProgram, nullptr);
  syscall(SYS_clock_gettime, CLOCK_REALTIME, &g_start[CLOCK_REALTIME]);
  syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &g_start[CLOCK_MONOTONIC]);
  g_plan.is_armed = true;
}

// --- Where a call comes from and what it is about ----------------------------------------------

_Unwind_Reason_Code AddFrame(_Unwind_Context* context, void* hash) {
  const uintptr_t address = _Unwind_GetIP(context);
  if (address >= g_program_begin && address < g_program_end) {
    auto* value = static_cast<uint32_t*>(hash);
    *value = *value * 31 + static_cast<uint32_t>(address - g_program_begin);
  }
  return _URC_NO_REASON;
}

// A number for the way through the program that led here.
uint32_t PathHere() {
  uint32_t hash = 0;
  _Unwind_Backtrace(AddFrame, &hash);
  return hash;
}

struct Subject {
  char text[96];
};

// A descriptor's file or socket, e.g. "udp:10017".
Subject About(int fd) {
  Subject subject = {"-"};
  sockaddr_in address = {};
  socklen_t length = sizeof(address);
  if (syscall(SYS_getsockname, fd, &address, &length) == 0) {
    int type = 0;
    length = sizeof(type);
    syscall(SYS_getsockopt, fd, SOL_SOCKET, SO_TYPE, &type, &length);
    snprintf(subject.text, sizeof(subject.text), "%s:%d", type == SOCK_DGRAM ? "udp" : "tcp",
             ntohs(address.sin_port));
    return subject;
  }
  char link[32];
  snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
  const long count =
      syscall(SYS_readlinkat, AT_FDCWD, link, subject.text, sizeof(subject.text) - 1);
  if (count > 0) subject.text[count] = '\0';
  return subject;
}

Subject About(const char* text) {
  Subject subject;
  snprintf(subject.text, sizeof(subject.text), "%s", *text == '\0' ? "-" : text);
  for (char* c = subject.text; *c != '\0'; ++c) {
    if (*c == ' ' || *c == '\n') *c = '_';
  }
  return subject;
}

Subject About(FILE* file) {
  return About(file->_fileno);
}

Subject About(const sockaddr* address) {
  Subject subject;
  snprintf(subject.text, sizeof(subject.text), "to:%d",
           ntohs(reinterpret_cast<const sockaddr_in*>(address)->sin_port));
  return subject;
}

void WriteDown(const char* mark, const char* call, long number, uint32_t path,
               const Subject& subject) {
  char line[256];
  const int length =
      snprintf(line, sizeof(line), "%s%s %ld %08x %s\n", mark, call, number, path, subject.text);
  const long fd =
      syscall(SYS_openat, AT_FDCWD, g_plan.log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) return;
  syscall(SYS_write, fd, line, static_cast<size_t>(length));
  syscall(SYS_close, fd);
}

// --- Deciding ----------------------------------------------------------------------------------

constexpr int kNoFault = INT32_MIN;

// The calls of one function so far.
using Counter = std::atomic<long>;

// Counts a call. Returns kNoFault or what is to happen to it.
template <typename About_>
int Next(const char* call, Counter* counter, About_ about) {
  if (!g_plan.is_armed) return kNoFault;
  const bool is_chosen = strcmp(call, g_plan.call) == 0;
  if (!is_chosen && !g_plan.is_record) return kNoFault;
  const int saved = errno;
  const long number = ++*counter;
  const bool fails = is_chosen && number >= g_plan.first && number - g_plan.first < g_plan.times;
  if (g_plan.is_record || (fails && number == g_plan.first)) {
    WriteDown(fails ? "!" : "", call, number, g_plan.is_record ? PathHere() : 0, about());
  }
  if (fails && g_plan.error == FAULT_KILL) syscall(SYS_kill, getpid(), SIGKILL);
  errno = saved;
  return fails ? g_plan.error : kNoFault;
}

// The function that is to be called in truth.
template <typename Function>
Function* Real(Function* /*type*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <typename Result>
Result Failed(Result result, int error) {
  errno = error;
  return result;
}

// --- Time --------------------------------------------------------------------------------------

int64_t InNs(const timespec& time) {
  return static_cast<int64_t>(time.tv_sec) * kNsPerS + time.tv_nsec;
}

timespec FromNs(int64_t ns) {
  return {.tv_sec = static_cast<time_t>(ns / kNsPerS), .tv_nsec = static_cast<long>(ns % kNsPerS)};
}

timespec FastNow(clockid_t clock) {
  timespec now;
  syscall(SYS_clock_gettime, clock, &now);
  const int64_t start = InNs(g_start[clock]);
  return FromNs(start + (InNs(now) - start) * g_plan.speed);
}

}  // namespace

// Types and statements cannot stand in parentheses. NOLINTBEGIN(bugprone-macro-parentheses)

// The daemon's calls come here. `failure` may use `error`; a body that has no failure of its own
// falls through to the real function.
#define FAULT_DECLARE(result, name, parameters) \
  result Fault_##name parameters __asm__(#name) __attribute__((visibility("default")));

#define FAULT_CALL(result, name, parameters, arguments, about, failure)              \
  FAULT_DECLARE(result, name, parameters)                                            \
  result Fault_##name parameters {                                                   \
    static Counter counter;                                                          \
    static result(*const real) parameters = Real<result parameters>(nullptr, #name); \
    const int error = Next(#name, &counter, [&] { return About(about); });           \
    if (error != kNoFault) {                                                         \
      failure;                                                                       \
    }                                                                                \
    return real arguments;                                                           \
  }

#define FAILS_WITH(result) return Failed(result, error)

// A transfer that ends early: 0 bytes.
#define FAILS_OR_ENDS return error == FAULT_SHORT ? 0 : Failed(-1, error)

// A transfer that is cut to half.
#define FAILS_OR_CUTS(length)                         \
  if (error != FAULT_SHORT) return Failed(-1, error); \
  if (length > 1) length /= 2

using std::size_t;

// --- Files -------------------------------------------------------------------------------------

FAULT_CALL(int, open, (const char* path, int flags, long mode), (path, flags, mode), path,
           FAILS_WITH(-1))
FAULT_CALL(ssize_t, read, (int fd, void* buffer, size_t size), (fd, buffer, size), fd,
           FAILS_OR_ENDS)
FAULT_CALL(ssize_t, write, (int fd, const void* bytes, size_t size), (fd, bytes, size), fd,
           FAILS_OR_CUTS(size))
FAULT_CALL(int, close, (int fd), (fd), fd, real(fd); FAILS_WITH(-1))
FAULT_CALL(int, fstat, (int fd, struct stat* status), (fd, status), fd, FAILS_WITH(-1))
FAULT_CALL(int, fchmod, (int fd, mode_t mode), (fd, mode), fd, FAILS_WITH(-1))
FAULT_CALL(int, fsync, (int fd), (fd), fd, FAILS_WITH(-1))
FAULT_CALL(int, fcntl, (int fd, int command, long argument), (fd, command, argument), fd,
           FAILS_WITH(-1))
FAULT_CALL(int, rename, (const char* from, const char* to), (from, to), to, FAILS_WITH(-1))
FAULT_CALL(int, unlink, (const char* path), (path), path, FAILS_WITH(-1))
FAULT_CALL(int, access, (const char* path, int mode), (path, mode), path, FAILS_WITH(-1))
FAULT_CALL(void*, opendir, (const char* path), (path), path, FAILS_WITH(nullptr))
FAULT_CALL(void*, readdir, (void* table), (table), "table", FAILS_WITH(nullptr))

// --- Streams -----------------------------------------------------------------------------------

FAULT_CALL(FILE*, fopen, (const char* path, const char* mode), (path, mode), path,
           FAILS_WITH(nullptr))
FAULT_CALL(FILE*, fdopen, (int fd, const char* mode), (fd, mode), fd, FAILS_WITH(nullptr))
FAULT_CALL(int, fclose, (FILE * file), (file), file, real(file); FAILS_WITH(EOF))

// Notes the failure in the stream, as the real function would.
#define STREAM_FAILS(result)                          \
  file->_flags |= error == FAULT_SHORT ? 0x10 : 0x20; \
  return Failed(result, error == FAULT_SHORT ? errno : error)

FAULT_CALL(char*, fgets, (char* text, int size, FILE* file), (text, size, file), file,
           STREAM_FAILS(nullptr))
FAULT_CALL(int, getc, (FILE * file), (file), file, STREAM_FAILS(EOF))
FAULT_CALL(size_t, fread, (void* buffer, size_t size, size_t count, FILE* file),
           (buffer, size, count, file), file, STREAM_FAILS(size_t{0}))
FAULT_CALL(int, fflush, (FILE * file), (file), file, STREAM_FAILS(EOF))
FAULT_CALL(int, fseek, (FILE * file, long offset, int whence), (file, offset, whence), file,
           FAILS_WITH(-1))
FAULT_CALL(long, ftell, (FILE * file), (file), file, FAILS_WITH(-1))
FAULT_CALL(int, setvbuf, (FILE * file, char* buffer, int mode, size_t size),
           (file, buffer, mode, size), file, FAILS_WITH(-1))

// What is printed for people may get lost: only other streams count.
FAULT_DECLARE(size_t, fwrite, (const void* bytes, size_t size, size_t count, FILE* file))
size_t Fault_fwrite(const void* bytes, size_t size, size_t count, FILE* file) {
  static Counter counter;
  static auto* const real = Real<size_t(const void*, size_t, size_t, FILE*)>(nullptr, "fwrite");
  if (file != stdout && file != stderr) {
    const int error = Next("fwrite", &counter, [&] { return About(file); });
    if (error != kNoFault) {
      STREAM_FAILS(size_t{0});
    }
  }
  return real(bytes, size, count, file);
}

// --- The line ----------------------------------------------------------------------------------

struct termios;

FAULT_CALL(int, ioctl, (int fd, unsigned long request, void* argument), (fd, request, argument), fd,
           FAILS_WITH(-1))
FAULT_CALL(int, tcgetattr, (int fd, struct termios* settings), (fd, settings), fd, FAILS_WITH(-1))
FAULT_CALL(int, tcsetattr, (int fd, int when, const struct termios* settings), (fd, when, settings),
           fd, FAILS_WITH(-1))
FAULT_CALL(int, tcflush, (int fd, int queue), (fd, queue), fd, FAILS_WITH(-1))
FAULT_CALL(int, tcdrain, (int fd), (fd), fd, FAILS_WITH(-1))

// --- Sockets -----------------------------------------------------------------------------------

FAULT_CALL(int, socket, (int family, int type, int protocol), (family, type, protocol),
           (type & SOCK_DGRAM) != 0 ? "udp" : "tcp", FAILS_WITH(-1))
FAULT_CALL(int, bind, (int fd, const sockaddr* address, socklen_t size), (fd, address, size),
           address, FAILS_WITH(-1))
FAULT_CALL(int, listen, (int fd, int backlog), (fd, backlog), fd, FAILS_WITH(-1))
FAULT_CALL(int, connect, (int fd, const sockaddr* address, socklen_t size), (fd, address, size),
           address, FAILS_WITH(-1))
FAULT_CALL(int, accept4, (int fd, sockaddr* address, socklen_t* size, int flags),
           (fd, address, size, flags), fd, FAILS_WITH(-1))
FAULT_CALL(int, setsockopt, (int fd, int level, int option, const void* value, socklen_t size),
           (fd, level, option, value, size), fd, FAILS_WITH(-1))
FAULT_CALL(int, getaddrinfo, (const char* host, const char* service, const void* hints, void* out),
           (host, service, hints, out), host, return error)
FAULT_CALL(ssize_t, send, (int fd, const void* bytes, size_t size, int flags),
           (fd, bytes, size, flags), fd, FAILS_OR_CUTS(size))
FAULT_CALL(ssize_t, sendto,
           (int fd, const void* bytes, size_t size, int flags, const sockaddr* to,
            socklen_t to_size),
           (fd, bytes, size, flags, to, to_size), to, FAILS_WITH(-1))
FAULT_CALL(ssize_t, recv, (int fd, void* buffer, size_t size, int flags), (fd, buffer, size, flags),
           fd, FAILS_OR_ENDS)
FAULT_CALL(ssize_t, recvfrom,
           (int fd, void* buffer, size_t size, int flags, sockaddr* from, socklen_t* from_size),
           (fd, buffer, size, flags, from, from_size), fd, FAILS_OR_ENDS)

// --- Waits -------------------------------------------------------------------------------------

namespace {

// Says that everything is ready that was asked about, ready or not.
int AllReady(pollfd* sources, nfds_t count) {
  int ready = 0;
  for (nfds_t i = 0; i < count; ++i) {
    sources[i].revents = sources[i].fd < 0 ? 0 : POLLIN;
    if (sources[i].revents != 0) ++ready;
  }
  return ready;
}

int Descriptors(nfds_t count) {
  return static_cast<int>(count);
}

}  // namespace

FAULT_DECLARE(int, poll, (pollfd * sources, nfds_t count, int ms))
int Fault_poll(pollfd* sources, nfds_t count, int ms) {
  static Counter counter;
  static auto* const real = Real<int(pollfd*, nfds_t, int)>(nullptr, "poll");
  const int error = Next("poll", &counter, [&] { return About(sources[0].fd); });
  if (error == FAULT_READY) return AllReady(sources, count);
  if (error != kNoFault) return Failed(-1, error);
  const int speed = static_cast<int>(g_plan.speed);
  return real(sources, count, ms <= 0 ? ms : (ms + speed - 1) / speed);
}

FAULT_DECLARE(int, ppoll,
              (pollfd * sources, nfds_t count, const timespec* limit, const sigset_t* mask))
int Fault_ppoll(pollfd* sources, nfds_t count, const timespec* limit, const sigset_t* mask) {
  static Counter counter;
  static auto* const real =
      Real<int(pollfd*, nfds_t, const timespec*, const sigset_t*)>(nullptr, "ppoll");
  const int error = Next("ppoll", &counter, [&] {
    return count == 1 ? About(sources[0].fd) : About(mask != nullptr ? "all" : "clients");
  });
  if (error == FAULT_READY) return AllReady(sources, count);
  if (error != kNoFault) return Failed(-1, error);
  if (limit == nullptr) return real(sources, count, nullptr, mask);
  const timespec fast = FromNs(InNs(*limit) / g_plan.speed);
  return real(sources, count, &fast, mask);
}

// The set stays as it was asked about when everything is to be ready.
FAULT_CALL(int, select, (int count, fd_set* in, fd_set* out, fd_set* other, timeval* limit),
           (count, in, out, other, limit), "set", if (error == FAULT_READY) return Descriptors(3);
           FAILS_WITH(-1))

FAULT_DECLARE(int, clock_nanosleep, (clockid_t clock, int flags, const timespec* until, timespec*))
int Fault_clock_nanosleep(clockid_t clock, int flags, const timespec* until, timespec* left) {
  static Counter counter;
  static auto* const real =
      Real<int(clockid_t, int, const timespec*, timespec*)>(nullptr, "clock_nanosleep");
  const int error = Next("clock_nanosleep", &counter, [] { return About("sleep"); });
  if (error != kNoFault) return error;
  const int64_t start = InNs(g_start[clock]);
  const timespec slow = FromNs(start + (InNs(*until) - start) / g_plan.speed);
  return real(clock, flags, &slow, left);
}

FAULT_DECLARE(int, clock_gettime, (clockid_t clock, timespec* now))
int Fault_clock_gettime(clockid_t clock, timespec* now) {
  if (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC) {
    return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
  }
  *now = FastNow(clock);
  return 0;
}

FAULT_DECLARE(int, gettimeofday, (timeval * now, void* zone))
int Fault_gettimeofday(timeval* now, void* /*zone*/) {
  const timespec fast = FastNow(CLOCK_REALTIME);
  *now = {.tv_sec = fast.tv_sec, .tv_usec = static_cast<suseconds_t>(fast.tv_nsec / 1000)};
  return 0;
}

FAULT_DECLARE(time_t, time, (time_t * out))
time_t Fault_time(time_t* out) {
  const time_t now = FastNow(CLOCK_REALTIME).tv_sec;
  if (out != nullptr) *out = now;
  return now;
}

// --- Memory, locks, threads, programs ----------------------------------------------------------

FAULT_CALL(void*, mmap, (void* at, size_t size, int protection, int flags, int fd, off_t offset),
           (at, size, protection, flags, fd, offset), fd,
           FAILS_WITH(static_cast<void*>(MAP_FAILED)))
FAULT_CALL(int, munmap, (void* at, size_t size), (at, size), "memory", FAILS_WITH(-1))
FAULT_CALL(void*, malloc, (size_t size), (size), "memory", FAILS_WITH(nullptr))
FAULT_CALL(int, semget, (int key, int count, int flags), (key, count, flags), "semaphore",
           FAILS_WITH(-1))
FAULT_CALL(int, semctl, (int set, int index, int command, long argument),
           (set, index, command, argument), "semaphore", FAILS_WITH(-1))
FAULT_CALL(int, semop, (int set, void* operations, size_t count), (set, operations, count),
           "semaphore", FAILS_WITH(-1))
FAULT_CALL(int, pthread_create,
           (pthread_t * thread, const void* attributes, void* (*routine)(void*), void* argument),
           (thread, attributes, routine, argument), "thread", return error)
FAULT_CALL(int, system, (const char* command), (command), command, FAILS_WITH(-1))
FAULT_CALL(int, kill, (pid_t process, int signal), (process, signal), "process", FAILS_WITH(-1))

// The library that looks a function up may itself ask for memory.
FAULT_DECLARE(void*, calloc, (size_t count, size_t size))
void* Fault_calloc(size_t count, size_t size) {
  static Counter counter;
  static void* (*real)(size_t, size_t) = nullptr;
  static bool is_looking = false;
  if (is_looking) return nullptr;
  if (real == nullptr) {
    is_looking = true;
    real = Real<void*(size_t, size_t)>(nullptr, "calloc");
    is_looking = false;
  }
  const int error = Next("calloc", &counter, [] { return About("memory"); });
  return error != kNoFault ? Failed<void*>(nullptr, error) : real(count, size);
}

// What the daemon calls where files and times have 64 bits, or buffers are checked: the same
// functions; the size that a check adds is the last argument, which nobody reads.
#define FAULT_ALIAS(result, name, other, parameters)               \
  extern "C" result Fault_alias_##other parameters __asm__(#other) \
      __attribute__((alias(#name), visibility("default")));

FAULT_ALIAS(int, open, open64, (const char* path, int flags, long mode))
FAULT_ALIAS(int, fcntl, fcntl64, (int fd, int command, long argument))
FAULT_ALIAS(int, fstat, fstat64, (int fd, struct stat* status))
FAULT_ALIAS(void*, readdir, readdir64, (void* table))
FAULT_ALIAS(FILE*, fopen, fopen64, (const char* path, const char* mode))
FAULT_ALIAS(void*, mmap, mmap64,
            (void* at, size_t size, int protection, int flags, int fd, off_t offset))
FAULT_ALIAS(int, poll, __poll_chk, (pollfd * sources, nfds_t count, int ms))
FAULT_ALIAS(int, ppoll, __ppoll_chk,
            (pollfd * sources, nfds_t count, const timespec* limit, const sigset_t* mask))

// NOLINTEND(bugprone-macro-parentheses)
