// libshim.so: preloaded into the daemon, it sets its wall clock forward and back, and counts what
// it writes to its line.
//
// Offset and count stand in a file that whoever started the daemon has mapped as well. The
// monotonic clock is left alone. The library leaves no descriptor open and takes no memory; what
// told it where the file is, is gone before the daemon's main runs.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "tests/soak/shim_memory.h"

namespace {

constexpr int64_t kNsPerS = 1'000'000'000;
constexpr int64_t kNsPerUs = 1'000;

ShimMemory* g_memory;

__attribute__((constructor)) void MapMemory() {
  const char* path = getenv(SOAK_SHIM);
  const int fd = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
  if (fd >= 0) {
    void* memory = mmap(nullptr, sizeof(ShimMemory), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory != MAP_FAILED) g_memory = static_cast<ShimMemory*>(memory);
    close(fd);
  }
  unsetenv(SOAK_SHIM);
  unsetenv("LD_PRELOAD");
}

int Read(clockid_t clock, timespec* out) {
  const long result = syscall(SYS_clock_gettime, clock, out);
  if (result != 0 || clock != CLOCK_REALTIME || g_memory == nullptr)
    return static_cast<int>(result);
  const int64_t ns = out->tv_sec * kNsPerS + out->tv_nsec + g_memory->offset_ns;
  out->tv_sec = ns / kNsPerS;
  out->tv_nsec = ns % kNsPerS;
  return 0;
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the names of libc are reserved.
extern "C" {

__attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* out) noexcept {
  return Read(clock, out);
}

__attribute__((visibility("default"))) int gettimeofday(timeval* out, void* /*zone*/) noexcept {
  timespec now;
  const int result = Read(CLOCK_REALTIME, &now);
  if (result == 0) *out = {.tv_sec = now.tv_sec, .tv_usec = now.tv_nsec / kNsPerUs};
  return result;
}

__attribute__((visibility("default"))) time_t time(time_t* out) noexcept {
  timespec now;
  if (Read(CLOCK_REALTIME, &now) != 0) return -1;
  if (out != nullptr) *out = now.tv_sec;
  return now.tv_sec;
}

// The daemon itself calls it for its line only. Bytes count before they are on their way.
__attribute__((visibility("default"))) ssize_t write(int fd, const void* bytes, size_t size) {
  if (g_memory != nullptr) g_memory->written += static_cast<int64_t>(size);
  const ssize_t written = syscall(SYS_write, fd, bytes, size);
  const int64_t left = static_cast<int64_t>(size) - (written > 0 ? written : 0);
  if (g_memory != nullptr) g_memory->written -= left;
  return written;
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
