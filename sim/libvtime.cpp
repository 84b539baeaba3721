// libvtime.so: the preloaded virtual clock of virtual_time.h.
//
// All processes on the clock map a shared page with the time and a slot per thread. A waiting
// thread polls its sources, stores the end of its wait in its slot, and sleeps until the next
// activity. `epoch` counts activity: a wait that began or ended, a signal that was sent. A thread
// that polls again without result confirms the epoch. Once all have confirmed it, only time can
// change anything, and the last thread moves the clock to the earliest timeout.
//
// Neither end of a pty sees the bytes that the kernel is still transferring. Bytes are therefore
// counted on write and read, and no thread confirms while any are in transit. After they arrive,
// all threads poll again, because some polled before.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "sim/virtual_time.h"

namespace {

constexpr int64_t kNsPerS = 1'000'000'000;
constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kNsPerUs = 1'000;
constexpr int64_t kNever = INT64_MAX;
// Reading the clock takes no time, except in a loop that only waits for a point in time: beyond
// kFreeLooks reads between two waits of a thread, each read takes kLookNs.
constexpr int64_t kLookNs = kNsPerUs;
constexpr int kFreeLooks = 200;
// Real-time interval at which a waiting thread polls for uncounted events: a signal from outside,
// the end of a process.
constexpr int64_t kRealLookNs = 20 * kNsPerMs;
constexpr int64_t kRealLookAtEndNs = 200 * kNsPerUs;
// Real-time limit for bytes in transit through a pty. Bytes of a closed or flushed line never
// arrive; others wait until the reader of a full end reads.
constexpr int64_t kPtyNs = kNsPerS;
constexpr int kPtyFull = 4000;

// A thread on the clock. A new process has one slot without a thread until it reaches main, and so
// does a new thread until it runs.
struct Slot {
  std::atomic<pid_t> pid;  // 0: free
  std::atomic<pid_t> tid;
  std::atomic<bool> is_waiting;
  std::atomic<bool> is_ending;  // its process is about to exit
  std::atomic<uint32_t> confirmed;
  std::atomic<int64_t> until_ns;
  std::atomic<uint64_t> waits;
};

struct Page {
  std::atomic<pid_t> owner;  // holds the lock on the slots
  std::atomic<uint32_t> epoch;
  std::atomic<int64_t> now_ns;                  // since the start
  std::array<std::atomic<int64_t>, 2> base_ns;  // CLOCK_REALTIME, CLOCK_MONOTONIC at the start
  std::atomic<int64_t> wall_ns;                 // CLOCK_REALTIME without the offset
  std::atomic<int> on_their_way;                // processes being started
  // Bytes written to the line and not read yet.
  std::atomic<int64_t> to_daemon, from_daemon;
  // Total bytes written to the line, and that total at the last announced arrival.
  std::atomic<int64_t> written, arrived;
  std::array<Slot, 128> slots;
};

Page* g_page;
std::atomic<bool> g_is_running;
thread_local Slot* t_slot __attribute__((tls_model("initial-exec")));
thread_local int t_looks __attribute__((tls_model("initial-exec")));  // since its last wait
std::atomic<int> g_far_end = -1;  // ends of the pty in this process
std::atomic<int> g_near_end = -1;

template <typename Function>
Function* Real(Function* /*type*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
#define REAL(name) static auto* const real = Real<decltype(::name)>(nullptr, #name)

bool IsOn() {
  return g_is_running.load(std::memory_order_relaxed);
}

int64_t InNs(const timespec& time) {
  return time.tv_sec * kNsPerS + time.tv_nsec;
}

int64_t RealNs(clockid_t clock) {
  timespec now;
  syscall(SYS_clock_gettime, clock, &now);
  return InNs(now);
}

void WakeAll() {
  syscall(SYS_futex, &g_page->epoch, FUTEX_WAKE, INT32_MAX, nullptr, nullptr, 0);
}

void CountChange() {
  ++g_page->epoch;
  WakeAll();
}

// Returns the time, and advances it if the thread reads it too often.
int64_t LookNs() {
  if (++t_looks > kFreeLooks) g_page->now_ns += kLookNs;
  return g_page->now_ns;
}

// --- Slots -------------------------------------------------------------------------------------

// True if a process has ended, even if its parent has not reaped it yet.
bool IsGone(pid_t pid) {
  siginfo_t info = {};
  const long result = syscall(SYS_waitid, P_PID, pid, &info, WEXITED | WNOHANG | WNOWAIT, nullptr);
  return result == 0 ? info.si_pid == pid : syscall(SYS_kill, pid, 0) != 0;
}

// Locks the slots. Takes the lock from a process that was killed while holding it.
class Lock {
 public:
  Lock() {
    pid_t owner = 0;
    for (int tries = 1; !g_page->owner.compare_exchange_weak(owner, getpid()); ++tries) {
      constexpr int kManyTries = 50;
      if (owner != 0 && tries % kManyTries == 0 && IsGone(owner)) {
        g_page->owner.compare_exchange_strong(owner, 0);
      }
      owner = 0;
      syscall(SYS_sched_yield);
    }
  }
  ~Lock() { g_page->owner = 0; }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

Slot* FindSlot(pid_t pid, pid_t tid) {
  const auto slot = std::ranges::find_if(
      g_page->slots, [&](const Slot& each) { return each.pid == pid && each.tid == tid; });
  return slot != g_page->slots.end() ? &*slot : nullptr;
}

void TakeSlot(Slot* slot, pid_t pid, pid_t tid) {
  if (slot == nullptr) abort();  // too many threads
  slot->tid = tid;
  slot->is_waiting = false;
  slot->is_ending = false;
  slot->waits = 0;
  slot->pid = pid;
}

// For a thread being started.
void ReserveSlot(pid_t pid) {
  const Lock lock;
  TakeSlot(FindSlot(0, 0), pid, 0);
}

// Puts the calling thread on the clock.
void Register() {
  if (t_slot != nullptr) return;
  const Lock lock;
  const auto tid = static_cast<pid_t>(syscall(SYS_gettid));
  Slot* slot = FindSlot(getpid(), 0);
  if (slot == nullptr) slot = FindSlot(0, 0);
  TakeSlot(slot, getpid(), tid);
  t_slot = slot;
}

void FreeSlot(Slot* slot) {
  slot->tid = 0;
  slot->pid = 0;
}

void Unregister() {
  if (t_slot == nullptr) return;
  FreeSlot(t_slot);
  t_slot = nullptr;
  CountChange();
}

void MarkEnding(pid_t pid) {
  const Lock lock;
  for (Slot& slot : g_page->slots) {
    if (slot.pid == pid) slot.is_ending = true;
  }
}

// Frees the slots of dead processes. Returns true if there were any.
bool DropGone() {
  bool found = false;
  const Lock lock;
  for (Slot& slot : g_page->slots) {
    if (slot.pid == 0 || slot.pid == getpid() || !IsGone(slot.pid)) continue;
    FreeSlot(&slot);
    found = true;
  }
  return found;
}

// --- Waiting -----------------------------------------------------------------------------------

int Waiting(int fd) {
  int count = 0;
  return syscall(SYS_ioctl, fd, FIONREAD, &count) == 0 ? count : 0;
}

// True if an open end of the line still has to receive some of `bytes`.
bool IsToGet(int end, int64_t bytes) {
  if (end < 0 || bytes <= 0) return false;
  const int waiting = Waiting(end);
  return bytes > waiting && waiting < kPtyFull;
}

// Always false in a process that does not hold both ends.
bool AreBytesOnTheirWay() {
  return g_far_end >= 0 &&
         (IsToGet(g_far_end, g_page->from_daemon) || IsToGet(g_near_end, g_page->to_daemon));
}

// Makes every thread poll again once after bytes have arrived. Returns true if they have.
bool AnnounceArrival() {
  const int64_t written = g_page->written;
  if (g_far_end < 0 || g_page->arrived.exchange(written) == written) return false;
  ++g_page->epoch;
  return true;
}

// Confirms that the calling thread has polled without result since `epoch`. Moves the clock if all
// other threads have confirmed, too.
bool Confirm(uint32_t epoch) {
  const Lock lock;
  if (g_page->epoch != epoch) return false;
  t_slot->confirmed = epoch;
  if (g_page->on_their_way != 0) return false;
  int64_t next_ns = kNever;
  for (const Slot& slot : g_page->slots) {
    if (slot.pid == 0) continue;
    if (!slot.is_waiting || slot.confirmed != epoch) return false;
    next_ns = std::min(next_ns, slot.until_ns.load());
  }
  if (next_ns == kNever) return false;
  g_page->now_ns = std::max(g_page->now_ns.load(), next_ns);
  ++g_page->epoch;
  return true;
}

// Sleeps until the epoch changes or the real-time interval is over. Returns false on a signal.
bool SleepUntilChange(uint32_t epoch) {
  const bool ending =
      std::ranges::any_of(g_page->slots, [](const Slot& slot) { return slot.is_ending.load(); });
  const timespec most = {.tv_sec = 0, .tv_nsec = ending ? kRealLookAtEndNs : kRealLookNs};
  if (syscall(SYS_futex, &g_page->epoch, FUTEX_WAIT, epoch, &most, nullptr, 0) == 0) return true;
  if (errno == EINTR) return false;
  if (errno == ETIMEDOUT && DropGone()) CountChange();
  return true;
}

// Polls until `look` returns a result other than 0 or the clock reaches `until_ns`.
template <typename Look>
int WaitFor(int64_t until_ns, Look look) {
  const int64_t patience_ns = RealNs(CLOCK_MONOTONIC) + kPtyNs;
  while (true) {
    const uint32_t epoch = g_page->epoch;
    const int result = look();
    if (result != 0 || g_page->now_ns >= until_ns) return result;
    if (AreBytesOnTheirWay()) {
      if (RealNs(CLOCK_MONOTONIC) >= patience_ns) {  // the missing bytes are lost
        g_page->from_daemon = Waiting(g_far_end);
        g_page->to_daemon = Waiting(g_near_end);
      }
      syscall(SYS_sched_yield);
      continue;
    }
    if (AnnounceArrival() || Confirm(epoch)) {
      WakeAll();
      continue;
    }
    if (!SleepUntilChange(epoch)) {
      errno = EINTR;
      return -1;
    }
  }
}

// Waits at most `limit_ns` (negative: forever) until `look`, which returns what poll would, is not
// 0.
template <typename Look>
int Wait(int64_t limit_ns, Look look) {
  Register();
  ++t_slot->waits;
  const int ready = look();
  if (ready != 0 || limit_ns == 0) {
    LookNs();
    return ready;
  }
  t_looks = 0;
  const int64_t until_ns = limit_ns < 0 ? kNever : g_page->now_ns + limit_ns;
  t_slot->until_ns = until_ns;
  t_slot->is_waiting = true;
  CountChange();
  const int result = WaitFor(until_ns, look);
  const int error = errno;
  t_slot->is_waiting = false;
  ++g_page->epoch;
  errno = error;
  return result;
}

int Sleep(int64_t ns) {
  return Wait(std::max<int64_t>(ns, 0), [] { return 0; });
}

// --- Start -------------------------------------------------------------------------------------

bool MapPage(const char* path, int flags) {
  const int fd = static_cast<int>(
      syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC | flags, S_IRUSR | S_IWUSR));
  if (fd < 0) return false;
  void* page = MAP_FAILED;
  if (ftruncate(fd, sizeof(Page)) == 0) {
    page = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  }
  syscall(SYS_close, fd);
  if (page == MAP_FAILED) return false;
  g_page = static_cast<Page*>(page);
  return true;
}

// Starts virtual time. ThreadSanitizer starts a background thread together with the first thread.
// It never waits, so it must exist before the clock runs.
void SwitchOn() {
  pthread_t first;
  const bool has_own = dlsym(RTLD_DEFAULT, "__tsan_init") != nullptr;
  const auto nothing = [](void* argument) { return argument; };
  if (has_own && pthread_create(&first, nullptr, nothing, nullptr) == 0) {
    pthread_join(first, nullptr);
  }
  g_is_running = true;
  Register();
}

bool Start(const char* path) {
  if (g_page == nullptr && !MapPage(path, O_CREAT)) return false;
  for (const clockid_t clock : {CLOCK_REALTIME, CLOCK_MONOTONIC})
    g_page->base_ns[static_cast<size_t>(clock)] = RealNs(clock) - g_page->now_ns;
  g_page->wall_ns = g_page->base_ns[CLOCK_REALTIME].load();
  SwitchOn();
  return true;
}

void Stop() {
  if (!IsOn()) return;
  Unregister();
  g_is_running = false;
}

// The process may already have taken a slot itself, if it has reached main.
void EndSpawn(pid_t pid) {
  const Lock lock;
  const auto is_its = [pid](const Slot& slot) { return slot.pid == pid; };
  if (pid > 0 && std::ranges::none_of(g_page->slots, is_its)) TakeSlot(FindSlot(0, 0), pid, 0);
  --g_page->on_their_way;
}

void SetWallOffset(int64_t ns) {
  g_page->base_ns[CLOCK_REALTIME] = g_page->wall_ns + ns;
}

uint64_t Waits(pid_t pid) {
  uint64_t waits = 0;
  for (const Slot& slot : g_page->slots) {
    if (slot.pid == pid) waits += slot.waits;
  }
  return waits;
}

// Runs in each process started on the clock. A shell only starts the real program.
__attribute__((constructor)) void Begin() {
  const char* path = getenv(VTIME_FILE);
  if (path != nullptr && strcmp(program_invocation_short_name, "sh") == 0) return;
  if (path != nullptr && MapPage(path, 0)) SwitchOn();
  unsetenv(VTIME_FILE);
  unsetenv("LD_PRELOAD");
}

__attribute__((destructor)) void End() {
  if (IsOn()) MarkEnding(getpid());
}

struct Thread {
  void* (*routine)(void*);
  void* argument;
};

// Not on the heap: that of a sanitizer may not be ready for the new thread.
std::array<Thread, 16> g_threads;
std::atomic<size_t> g_next_thread;

void* RunThread(void* memory) {
  const Thread thread = *static_cast<Thread*>(memory);
  Register();
  void* result = thread.routine(thread.argument);
  Unregister();
  return result;
}

}  // namespace

// NOLINTBEGIN: libc fixes the names and parameters.
#define EXPORT __attribute__((visibility("default")))
extern "C" {

extern const VtimeControl vtime_control EXPORT;
const VtimeControl vtime_control = {.start = Start,
                                    .stop = Stop,
                                    .is_running = IsOn,
                                    .begin_spawn = [] { ++g_page->on_their_way; },
                                    .end_spawn = EndSpawn,
                                    .set_wall_offset = SetWallOffset,
                                    .waits = Waits};

// --- Clocks ------------------------------------------------------------------------------------

EXPORT int clock_gettime(clockid_t clock, timespec* out) noexcept {
  if (!IsOn() || (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC)) {
    return static_cast<int>(syscall(SYS_clock_gettime, clock, out));
  }
  const int64_t ns = g_page->base_ns[static_cast<size_t>(clock)] + LookNs();
  *out = {.tv_sec = ns / kNsPerS, .tv_nsec = ns % kNsPerS};
  return 0;
}

EXPORT int gettimeofday(timeval* out, void* /*zone*/) noexcept {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  *out = {.tv_sec = now.tv_sec, .tv_usec = now.tv_nsec / kNsPerUs};
  return 0;
}

EXPORT time_t time(time_t* out) noexcept {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (out != nullptr) *out = now.tv_sec;
  return now.tv_sec;
}

// --- Waits -------------------------------------------------------------------------------------

EXPORT int ppoll(pollfd* sources, nfds_t count, const timespec* limit, const sigset_t* mask) {
  REAL(ppoll);
  if (!IsOn()) return real(sources, count, limit, mask);
  return Wait(limit != nullptr ? InNs(*limit) : -1, [&] {
    const timespec now = {};
    return real(sources, count, &now, mask);
  });
}

EXPORT int poll(pollfd* sources, nfds_t count, int limit_ms) {
  REAL(poll);
  if (!IsOn()) return real(sources, count, limit_ms);
  return Wait(limit_ms * kNsPerMs, [&] { return real(sources, count, 0); });
}

EXPORT int select(int count, fd_set* in, fd_set* out, fd_set* other, timeval* limit) {
  REAL(select);
  if (!IsOn()) return real(count, in, out, other, limit);
  const std::array<fd_set*, 3> sets = {in, out, other};
  std::array<fd_set, 3> asked;
  for (size_t i = 0; i < sets.size(); ++i) {
    if (sets[i] != nullptr) asked[i] = *sets[i];
  }
  const int64_t ns = limit != nullptr ? limit->tv_sec * kNsPerS + limit->tv_usec * kNsPerUs : -1;
  return Wait(ns, [&] {
    for (size_t i = 0; i < sets.size(); ++i) {
      if (sets[i] != nullptr) *sets[i] = asked[i];
    }
    timeval now = {};
    return real(count, in, out, other, &now);
  });
}

EXPORT int sigtimedwait(const sigset_t* set, siginfo_t* info, const timespec* limit) {
  REAL(sigtimedwait);
  if (!IsOn()) return real(set, info, limit);
  const int signal = Wait(InNs(*limit), [&] {
    const timespec now = {};
    const int pending = real(set, info, &now);
    return pending < 0 && errno == EAGAIN ? 0 : pending;
  });
  if (signal == 0) errno = EAGAIN;
  return signal == 0 ? -1 : signal;
}

EXPORT int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left) {
  REAL(clock_nanosleep);
  if (!IsOn()) return real(clock, flags, time, left);
  const int64_t base_ns = (flags & TIMER_ABSTIME) != 0
                              ? g_page->base_ns[static_cast<size_t>(clock)] + g_page->now_ns
                              : 0;
  return Sleep(InNs(*time) - base_ns) == 0 ? 0 : errno;
}

EXPORT int nanosleep(const timespec* time, timespec* left) {
  REAL(nanosleep);
  return IsOn() ? Sleep(InNs(*time)) : real(time, left);
}

EXPORT int usleep(useconds_t us) {
  REAL(usleep);
  return IsOn() ? Sleep(us * kNsPerUs) : real(us);
}

// The thread that it yields to may sleep.
EXPORT int sched_yield() noexcept {
  if (!IsOn()) return static_cast<int>(syscall(SYS_sched_yield));
  Sleep(kNsPerUs);
  return 0;
}

// --- Threads and signals -----------------------------------------------------------------------

EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument) noexcept {
  REAL(pthread_create);
  if (!IsOn()) return real(thread, attributes, routine, argument);
  Thread* start = &g_threads[g_next_thread++ % g_threads.size()];
  *start = {.routine = routine, .argument = argument};
  // If the process is killed now, its other slots and this one are freed together.
  ReserveSlot(getpid());
  const int error = real(thread, attributes, RunThread, start);
  if (error != 0) FreeSlot(FindSlot(getpid(), 0));
  return error;
}

// Unregisters this thread from the clock while it waits; otherwise the clock would stand still
// while the joined thread sleeps.
EXPORT int pthread_join(pthread_t thread, void** result) {
  REAL(pthread_join);
  const bool was_on = IsOn() && t_slot != nullptr;
  if (was_on) Unregister();
  const int error = real(thread, result);
  if (was_on) Register();
  return error;
}

EXPORT int pause() {
  REAL(pause);
  return IsOn() ? Wait(-1, [] { return 0; }) : real();
}

EXPORT int kill(pid_t pid, int signal) noexcept {
  REAL(kill);
  const int result = real(pid, signal);
  const int error = errno;
  if (IsOn() && signal == SIGKILL) MarkEnding(pid);
  if (IsOn() && signal != 0) CountChange();
  errno = error;
  return result;
}

// --- The line ----------------------------------------------------------------------------------

EXPORT int posix_openpt(int flags) {
  REAL(posix_openpt);
  const int fd = real(flags);
  if (IsOn() && fd >= 0) {
    g_far_end = fd;
    g_near_end = -1;
    g_page->from_daemon = 0;
    g_page->to_daemon = 0;
  }
  return fd;
}

EXPORT int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = static_cast<mode_t>(va_arg(arguments, int));
  va_end(arguments);
  const auto fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE, mode));
  const int error = errno;
  if (IsOn() && fd >= 0 && strncmp(path, "/dev/", 5) == 0 && isatty(fd) != 0) g_near_end = fd;
  errno = error;
  return fd;
}

EXPORT int close(int fd) {
  for (auto* end : {&g_far_end, &g_near_end}) {
    int same = fd;
    end->compare_exchange_strong(same, -1);
  }
  return static_cast<int>(syscall(SYS_close, fd));
}

EXPORT int tcflush(int fd, int queue) noexcept {
  REAL(tcflush);
  const int result = real(fd, queue);
  if (IsOn() && fd == g_near_end) (queue == TCIFLUSH ? g_page->to_daemon : g_page->from_daemon) = 0;
  return result;
}

EXPORT ssize_t write(int fd, const void* bytes, size_t size) {
  std::atomic<int64_t>* count = nullptr;
  if (IsOn() && fd == g_far_end) count = &g_page->to_daemon;
  if (IsOn() && fd == g_near_end) count = &g_page->from_daemon;
  if (count != nullptr) {  // before the transfer starts
    *count += static_cast<int64_t>(size);
    g_page->written += static_cast<int64_t>(size);
  }
  const ssize_t written = syscall(SYS_write, fd, bytes, size);
  if (count != nullptr) *count -= static_cast<int64_t>(size) - std::max<ssize_t>(written, 0);
  return written;
}

EXPORT ssize_t read(int fd, void* bytes, size_t size) {
  const ssize_t count = syscall(SYS_read, fd, bytes, size);
  if (IsOn() && count > 0 && (fd == g_far_end || fd == g_near_end)) {
    auto& on_their_way = fd == g_far_end ? g_page->from_daemon : g_page->to_daemon;
    const int64_t left = on_their_way -= count;
    if (left < 0) on_their_way -= left;  // bytes considered lost have arrived
  }
  return count;
}

}  // extern "C"
// NOLINTEND
