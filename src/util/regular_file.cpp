#include "util/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

// Returns 0, or the errno value that refuses the file.
int CheckFile(int fd, off_t max_bytes) {
  struct stat status = {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return EINVAL;
  return status.st_size > max_bytes ? EFBIG : 0;
}

}  // namespace

FILE* CUTIL_OpenRegular(const char* path, int flags, off_t max_bytes) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | flags);
  if (fd < 0) return nullptr;
  errno = CheckFile(fd, max_bytes);
  FILE* file = errno == 0 ? fdopen(fd, "r") : nullptr;
  if (file == nullptr) {
    const int error = errno;
    close(fd);
    errno = error;
  }
  return file;
}

FILE* CUTIL_OpenSettings(const char* path, off_t max_bytes) {
  FILE* file = CUTIL_OpenRegular(path, 0, max_bytes);
  if (file == nullptr && errno == EFBIG) {
    printf("[%s] error open, reason(%s is longer than %lld bytes)\n", "CUTIL_OpenSettings", path,
           static_cast<long long>(max_bytes));
    errno = EFBIG;
  }
  return file;
}
