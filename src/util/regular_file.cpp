#include "util/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

FILE* CUTIL_OpenRegular(const char* path) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return nullptr;
  struct stat status = {};
  FILE* file = nullptr;
  errno = EINVAL;
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) file = fdopen(fd, "r");
  if (file == nullptr) close(fd);
  return file;
}
