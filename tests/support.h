// Helpers shared by several tests: captured output, elapsed time, sockets, a temporary file.
#pragma once

#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <type_traits>

#include "sim/device.h"
#include "sim/wait.h"
#include "tools/unique_fd.h"

namespace support {

// Runs `action` and returns "RESULT ", or "" if it returns void.
template <typename Action>
std::string Outcome(Action action) {
  if constexpr (std::is_void_v<decltype(action())>) {
    action();
    return "";
  } else {
    return std::to_string(action()) + ' ';
  }
}
// Returns the result and the captured output: "RESULT TEXT".
template <typename Action>
std::string OnStdout(Action action) {
  testing::internal::CaptureStdout();
  const std::string result = Outcome(action);
  return result + testing::internal::GetCapturedStdout();
}
template <typename Action>
std::string OnStderr(Action action) {
  testing::internal::CaptureStderr();
  const std::string result = Outcome(action);
  return result + testing::internal::GetCapturedStderr();
}

// Expects `action` to take at least `least_ms` and less than `slack_ms` more.
template <typename Action>
void ExpectTakes(double least_ms, Action action, double slack_ms = 500) {
  const auto start = sim::Clock::now();
  action();
  const std::chrono::duration<double, std::milli> taken = sim::Clock::now() - start;
  EXPECT_GE(taken.count(), least_ms);
  EXPECT_LT(taken.count(), least_ms + slack_ms);
}

// Seconds of the kernel's clock, which runs even while the virtual clock stands still.
inline double RealSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC_RAW, &now);
  return static_cast<double>(now.tv_sec);
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

// A new empty file, deleted by the destructor.
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
  sockaddr_storage storage = {};
  sockaddr* const address = reinterpret_cast<sockaddr*>(&storage);
  socklen_t length = sizeof(storage);
  getsockname(fd, address, &length);
  char host[64] = "";
  char port[8] = "";
  getnameinfo(address, length, host, sizeof(host), port, sizeof(port),
              NI_NUMERICHOST | NI_NUMERICSERV);
  return std::string(host) + ' ' + port;
}

}  // namespace support
