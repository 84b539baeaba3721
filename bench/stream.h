// The bytes that go through a contender, and the ends at which they arrive. Every byte follows from
// its place, so that a lost, a doubled or a changed one shows at once.
#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "sim/wait.h"

namespace bench {

// Up to `size` bytes of the stream from `offset` on; may be fewer.
std::span<const uint8_t> StreamBytes(uint64_t offset, size_t size);

// Descriptors at each of which the stream arrives, from its beginning on.
class Receivers {
 public:
  // Told after each read: the receiver's index, and when the read returned.
  using OnRead = std::function<void(size_t index, sim::Clock::time_point when)>;

  explicit Receivers(const std::vector<int>& fds, OnRead on_read = nullptr);

  // Sleeps until bytes arrive, `writer` (if not -1) takes bytes, or `limit` has passed, and reads
  // once from every receiver that has some. Returns false when the limit has passed. Throws
  // Unmeasured when bytes are lost or changed, or a connection ends.
  bool Read(std::chrono::nanoseconds limit, int writer = -1);

  // Whether `writer` took bytes in the last Read.
  bool IsWritable() const { return polls_.back().revents != 0; }

  // A receiver that is not read any more has a hole in its place: the others keep their index.
  void StopReading(size_t index) { polls_[index].fd = -1; }
  bool IsRead(size_t index) const { return polls_[index].fd >= 0; }

  size_t Count() const { return received_.size(); }
  uint64_t Received(size_t index) const { return received_[index]; }
  // Bytes that all receivers which are read have.
  uint64_t Least() const;

 private:
  void Take(size_t index);

  OnRead on_read_;
  std::vector<uint64_t> received_;
  std::vector<pollfd> polls_;  // the receivers, then the writer
  std::vector<uint8_t> buffer_;
};

}  // namespace bench
