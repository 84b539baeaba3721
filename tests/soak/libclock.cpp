// libclock.so: preloaded into the daemon, it sets its wall clock forward and back.
//
// The offset stands in a file that whoever started the daemon has mapped as well. The monotonic
// clock is left alone. The library leaves no descriptor open and takes no memory; what told it
// where the file is, is gone before the daemon's main runs.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "tests/soak/clock_offset.h"

namespace {

constexpr int64_t kNsPerS = 1'000'000'000;
constexpr int64_t kNsPerUs = 1'000;

const ClockOffset* g_offset;

__attribute__((constructor)) void MapOffset() {
  const char* path = getenv(SOAK_CLOCK);
  const int fd = path != nullptr ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  if (fd >= 0) {
    void* memory = mmap(nullptr, sizeof(ClockOffset), PROT_READ, MAP_SHARED, fd, 0);
    if (memory != MAP_FAILED) g_offset = static_cast<const ClockOffset*>(memory);
    close(fd);
  }
  unsetenv(SOAK_CLOCK);
  unsetenv("LD_PRELOAD");
}

int Read(clockid_t clock, timespec* out) {
  const long result = syscall(SYS_clock_gettime, clock, out);
  if (result != 0 || clock != CLOCK_REALTIME || g_offset == nullptr)
    return static_cast<int>(result);
  const int64_t ns = out->tv_sec * kNsPerS + out->tv_nsec + g_offset->load();
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

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
