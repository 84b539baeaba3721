#include "util/output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// Pending bytes of one line; a longer line is truncated.
constexpr size_t kPendingSize = 4096;

struct Output {
  int fd;
  bool is_socket;
  bool may_block;     // `fd` could not be reopened
  bool is_in_line;    // the last byte was not a line feed
  bool drops_line;    // drop the rest of this line
  long long dropped;  // lines dropped since the last report of their number
  size_t pending;     // bytes of `bytes` not written yet
  char bytes[kPendingSize];
};

// Writes to a blocking file. A writable terminal accepts at least one byte, a writable pipe a whole
// line, so neither write blocks.
ssize_t WriteIfRoom(const Output& output) {
  pollfd room = {.fd = output.fd, .events = POLLOUT, .revents = 0};
  if (poll(&room, 1, 0) <= 0) return 0;
  return write(output.fd, output.bytes, isatty(output.fd) != 0 ? 1 : output.pending);
}

// Returns the bytes written, 0 if the reader has no room, -1 if the reader is gone.
ssize_t WriteSome(const Output& output) {
  while (true) {
    const ssize_t count = output.is_socket   ? send(output.fd, output.bytes, output.pending,
                                                    MSG_DONTWAIT | MSG_NOSIGNAL)
                          : output.may_block ? WriteIfRoom(output)
                                             : write(output.fd, output.bytes, output.pending);
    if (count >= 0 || errno != EINTR) return count < 0 && errno == EAGAIN ? 0 : count;
  }
}

// Writes pending bytes until the reader has no room. Returns true if none are left.
bool WritePending(Output* output) {
  while (output->pending > 0) {
    const ssize_t count = WriteSome(*output);
    if (count == 0) return false;
    // If the reader is gone, the pending bytes are discarded.
    const size_t taken = count < 0 ? output->pending : static_cast<size_t>(count);
    output->pending -= taken;
    memmove(output->bytes, output->bytes + taken, output->pending);
  }
  return true;
}

// Writes the pending bytes, then the number of dropped lines if there are any.
bool Flush(Output* output) {
  if (!WritePending(output)) return false;
  if (output->dropped == 0) return true;
  const int length = snprintf(output->bytes, kPendingSize,
                              "[rs232d] %lld lines of output dropped\n", output->dropped);
  output->pending = static_cast<size_t>(length);
  output->dropped = 0;
  return WritePending(output);
}

// Appends to the pending bytes. Returns false if they do not fit; keeps one byte for a line feed.
bool Append(Output* output, const char* bytes, size_t size) {
  if (size >= kPendingSize - output->pending) return false;
  memcpy(output->bytes + output->pending, bytes, size);
  output->pending += size;
  return true;
}

// Accepts a line or part of one. A line is printed only if nothing is pending when it begins.
void Take(Output* output, const char* bytes, size_t size) {
  if (!output->is_in_line) output->drops_line = !Flush(output);
  if (!output->drops_line && !Append(output, bytes, size)) {
    output->bytes[output->pending++] = '\n';
    output->drops_line = true;
  }
  const bool ends = bytes[size - 1] == '\n';
  if (ends && output->drops_line) ++output->dropped;
  output->is_in_line = !ends;
}

ssize_t Write(void* cookie, const char* bytes, size_t size) {
  Output* output = static_cast<Output*>(cookie);
  size_t done = 0;
  while (done < size) {
    const void* line_feed = memchr(bytes + done, '\n', size - done);
    const size_t end = line_feed == nullptr
                           ? size
                           : static_cast<size_t>(static_cast<const char*>(line_feed) - bytes) + 1;
    Take(output, bytes + done, end - done);
    done = end;
  }
  WritePending(output);
  return static_cast<ssize_t>(size);
}

int Close(void* cookie) {
  Flush(static_cast<Output*>(cookie));
  free(cookie);
  return 0;
}

// Reopens the file of `fd` in non-blocking mode under the same descriptor number.
bool OpenAnew(int fd) {
  char path[sizeof("/proc/self/fd/") + 12];
  snprintf(path, sizeof(path), "/proc/self/fd/%d", fd);
  const int own = open(path, O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (own < 0) return false;
  const bool is_placed = dup2(own, fd) >= 0;
  close(own);
  return is_placed;
}

}  // namespace

FILE* CUTIL_OpenOutput(int fd) {
  struct stat status;
  if (fstat(fd, &status) != 0) return nullptr;
  const bool is_socket = S_ISSOCK(status.st_mode);
  if (!is_socket && !S_ISFIFO(status.st_mode) && isatty(fd) == 0) return nullptr;
  auto* output = static_cast<Output*>(calloc(1, sizeof(Output)));
  if (output == nullptr) return nullptr;
  const cookie_io_functions_t functions = {
      .read = nullptr, .write = Write, .seek = nullptr, .close = Close};
  FILE* stream = fopencookie(output, "w", functions);
  if (stream == nullptr) {
    free(output);
    return nullptr;
  }
  output->fd = fd;
  output->is_socket = is_socket;
  output->may_block = !is_socket && !OpenAnew(fd);
  setvbuf(stream, nullptr, _IONBF, 0);
  return stream;
}
