// A file descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

namespace tools {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int Get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace tools
