// What the tests of several objects need: captured streams, stopwatches, sockets from outside,
// the limits of the process, a file.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <type_traits>

#include "sim/device.h"
#include "sim/unique_fd.h"
#include "sim/wait.h"

namespace support {

// Runs `action`; returns its result, if it has one, and what was printed: "RESULT TEXT".
template <typename Action>
std::string Outcome(Action action, std::string (*captured)()) {
  if constexpr (std::is_void_v<decltype(action())>) {
    action();
    return captured();
  } else {
    const std::string result = std::to_string(action()) + ' ';
    return result + captured();
  }
}
template <typename Action>
std::string OnStdout(Action action) {
  testing::internal::CaptureStdout();
  return Outcome(action, testing::internal::GetCapturedStdout);
}
template <typename Action>
std::string OnStderr(Action action) {
  testing::internal::CaptureStderr();
  return Outcome(action, testing::internal::GetCapturedStderr);
}

// Processor time of this process so far, milliseconds.
inline double CpuMs() {
  timespec used;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
}

// Expects `action` to take at least `least_ms`, not `slack_ms` more, and hardly any processor.
template <typename Action>
void ExpectTakes(double least_ms, double slack_ms, Action action) {
  const double cpu = CpuMs();
  const auto start = sim::Clock::now();
  action();
  const std::chrono::duration<double, std::milli> taken = sim::Clock::now() - start;
  EXPECT_GE(taken.count(), least_ms);
  EXPECT_LT(taken.count(), least_ms + slack_ms);
  EXPECT_LT(CpuMs() - cpu, 300);
}
template <typename Action>
void ExpectTakes(double least_ms, Action action) {
  ExpectTakes(least_ms, 500, action);
}

// Runs `action` while this process gets no further descriptor; returns its result.
template <typename Action>
auto WithoutDescriptors(Action action) {
  rlimit before;
  getrlimit(RLIMIT_NOFILE, &before);
  const sim::UniqueFd lowest_free(dup(0));
  const rlimit limit = {static_cast<rlim_t>(lowest_free.Get()), before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &limit);
  const auto result = action();
  setrlimit(RLIMIT_NOFILE, &before);
  return result;
}

inline auto OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

inline int Option(int fd, int level, int option) {
  int value = -1;
  socklen_t length = sizeof(value);
  EXPECT_EQ(getsockopt(fd, level, option, &value, &length), 0);
  return value;
}

// An empty file of its own, gone with the object.
class TempFile {
 public:
  TempFile() { close(mkstemp(path_)); }
  ~TempFile() { unlink(path_); }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  const char* Path() const { return path_; }
  void Write(const std::string& text) const { sim::WriteTextFile(path_, text); }

 private:
  char path_[32] = "/tmp/rs232_test.XXXXXX";
};

// The local address of a socket, "ADDRESS PORT".
inline std::string LocalAddress(int fd) {
  sockaddr_in6 address = {};
  socklen_t length = sizeof(address);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  const void* bytes = &address.sin6_addr;
  if (address.sin6_family == AF_INET) bytes = &reinterpret_cast<sockaddr_in*>(&address)->sin_addr;
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(address.sin6_family, bytes, text, sizeof(text));
  return std::string(text) + ' ' + std::to_string(ntohs(address.sin6_port));
}

}  // namespace support
