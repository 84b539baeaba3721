#include "net/readable.h"

#include <poll.h>

#include <ctime>

int ZSK_WaitReadable(int fd, long seconds, long microseconds) {
  pollfd source = {.fd = fd, .events = POLLIN, .revents = 0};
  const timespec limit = {.tv_sec = seconds, .tv_nsec = microseconds * 1000};
  const int ready = ppoll(&source, 1, &limit, nullptr);
  if (ready <= 0) return ready;
  return (source.revents & POLLNVAL) != 0 ? -1 : 1;
}
