// Files of the private world that a fuzz target runs in.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "fuzz/check.h"

namespace fuzz {

// Replaces the contents of a file.
inline void PutFile(const char* path, const std::string& text) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  FUZZ_CHECK(fd >= 0);
  FUZZ_CHECK(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  close(fd);
}

// The whole contents, "" when there is no file.
inline std::string GetFile(const char* path) {
  std::string text;
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return text;
  char piece[4096];
  for (ssize_t count = 0; (count = read(fd, piece, sizeof(piece))) > 0;)
    text.append(piece, static_cast<size_t>(count));
  close(fd);
  return text;
}

}  // namespace fuzz
