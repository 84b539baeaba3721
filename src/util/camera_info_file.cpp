#include "util/camera_info_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/process.h"

namespace {

// Follows links, as the shell does: writing to a dangling link creates its target.
bool MayBeWritten() {
  struct stat status = {};
  const int error = stat(CAMERA_INFO_PATH, &status) == 0 ? 0 : errno;
  if (error == ENOENT || (error == 0 && S_ISREG(status.st_mode))) return true;
  fprintf(stderr, "[%s] error, reason(%s, %s)\n", "CUTIL_WriteCameraInfo", CAMERA_INFO_PATH,
          error == 0 ? "not a regular file" : strerror(error));
  return false;
}

}  // namespace

void CUTIL_WriteCameraInfo(std::initializer_list<const char*> lines) {
  if (!MayBeWritten()) return;
  const char* redirection = ">";
  for (const char* line : lines) {
    CUTIL_RunCommand("echo '%s' %s %s", line, redirection, CAMERA_INFO_PATH);
    redirection = ">>";
  }
}
