#include "net/readable.h"

#include <poll.h>

#include <ctime>

int ZSK_WaitReadable(int fd, int64_t microseconds) {
  constexpr int64_t kUsPerS = 1'000'000;
  constexpr int64_t kNsPerUs = 1'000;
  if (fd < 0) return -1;
  pollfd source = {.fd = fd, .events = POLLIN, .revents = 0};
  const timespec limit = {.tv_sec = static_cast<time_t>(microseconds / kUsPerS),
                          .tv_nsec = static_cast<long>(microseconds % kUsPerS * kNsPerUs)};
  const int ready = ppoll(&source, 1, &limit, nullptr);
  if (ready <= 0) return ready;
  return (source.revents & POLLNVAL) != 0 ? -1 : 1;
}
