// What the tests of several programs need: captured streams, temporary files, stopwatches, and
// the limits of the process.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "sim/device.h"
#include "sim/unique_fd.h"
#include "sim/wait.h"

namespace support {

// What `action` prints on one stream of this process.
template <typename Action>
std::string StdoutOf(Action action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

template <typename Action>
std::string StderrOf(Action action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}

// Milliseconds that `action` takes.
template <typename Action>
double MsOf(Action action) {
  const auto start = sim::Clock::now();
  action();
  return std::chrono::duration<double, std::milli>(sim::Clock::now() - start).count();
}

// Processor time of this process so far, milliseconds.
inline double CpuMs() {
  timespec used;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
}

// A file with these contents that goes away again.
class TempFile {
 public:
  explicit TempFile(const std::string& text) {
    sim::UniqueFd(mkstemp(path_.data()));
    sim::WriteTextFile(path_, text);
  }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  ~TempFile() { unlink(path_.c_str()); }
  const char* Path() const { return path_.c_str(); }

 private:
  std::string path_ = "/tmp/rs232-test-XXXXXX";
};

// Number of open descriptors of this process.
inline int OpenDescriptors() {
  DIR* const directory = opendir("/proc/self/fd");
  int count = 0;
  while (readdir(directory) != nullptr)
    ++count;
  closedir(directory);
  return count;
}

// While one stands, this process gets no further descriptor.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const sim::UniqueFd lowest_free(dup(0));
    const rlimit limit = {static_cast<rlim_t>(lowest_free.Get()), before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  NoMoreDescriptors(const NoMoreDescriptors&) = delete;
  NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;
  ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_;
};

}  // namespace support
