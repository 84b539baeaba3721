#include "bench/stream.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <random>
#include <string>

#include "bench/running.h"

namespace bench {
namespace {

// The stream has a prime period, so no power of two divides it. A piece may extend beyond the first
// period.
constexpr size_t kPeriod = 65521;
constexpr size_t kPiece = 1 << 20;
constexpr size_t kReadSize = 65536;

const std::array<uint8_t, kPeriod + kPiece>& Stream() {
  static const auto kStream = [] {
    std::array<uint8_t, kPeriod + kPiece> stream;
    std::mt19937 random(1);  // NOLINT(bugprone-random-generator-seed): the same in every run
    for (size_t i = 0; i < stream.size(); ++i)
      stream[i] = i < kPeriod ? static_cast<uint8_t>(random()) : stream[i - kPeriod];
    return stream;
  }();
  return kStream;
}

}  // namespace

std::span<const uint8_t> StreamBytes(uint64_t offset, size_t size) {
  return {Stream().data() + offset % kPeriod, std::min(size, kPiece)};
}

Receivers::Receivers(const std::vector<int>& fds, OnRead on_read)
    : on_read_(std::move(on_read)), received_(fds.size()), buffer_(kReadSize) {
  for (const int fd : fds)
    polls_.push_back({.fd = fd, .events = POLLIN, .revents = 0});
  polls_.push_back({.fd = -1, .events = POLLOUT, .revents = 0});
}

bool Receivers::Read(std::chrono::nanoseconds limit, int writer) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
  const timespec time = {.tv_sec = seconds.count(), .tv_nsec = (limit - seconds).count()};
  polls_.back().fd = writer;
  if (ppoll(polls_.data(), polls_.size(), &time, nullptr) <= 0) return false;
  for (size_t i = 0; i < received_.size(); ++i) {
    if (polls_[i].revents != 0) Take(i);
  }
  return true;
}

void Receivers::Take(size_t index) {
  const ssize_t count = read(polls_[index].fd, buffer_.data(), buffer_.size());
  const auto now = sim::Clock::now();
  if (count <= 0) throw Unmeasured("connection lost");
  const auto expected = StreamBytes(received_[index], static_cast<size_t>(count));
  if (!std::equal(expected.begin(), expected.end(), buffer_.begin())) {
    throw Unmeasured("bytes lost or changed after byte " + std::to_string(received_[index]));
  }
  received_[index] += static_cast<uint64_t>(count);
  if (on_read_) on_read_(index, now);
}

uint64_t Receivers::Least() const {
  uint64_t least = UINT64_MAX;
  for (size_t i = 0; i < received_.size(); ++i) {
    if (IsRead(i)) least = std::min(least, received_[i]);
  }
  return least;
}

}  // namespace bench
