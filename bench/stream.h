// The byte stream sent through a contender, and its receivers. Each byte follows from its offset,
// so lost, repeated and changed bytes are detected.
#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "sim/wait.h"

namespace bench {

// At most `size` bytes of the stream from `offset`; may return fewer.
std::span<const uint8_t> StreamBytes(uint64_t offset, size_t size);

// Descriptors that each receive the whole stream.
class Receivers {
 public:
  // Called after each read with the receiver's index and the time the read returned.
  using OnRead = std::function<void(size_t index, sim::Clock::time_point when)>;

  explicit Receivers(const std::vector<int>& fds, OnRead on_read = nullptr);

  // Waits until bytes arrive, `writer` (-1: none) is writable, or `limit` has passed, and reads
  // once from every readable receiver. Returns false on timeout. Throws Unmeasured if bytes are
  // lost or changed, or if a connection ends.
  bool Read(std::chrono::nanoseconds limit, int writer = -1);

  // True if `writer` was writable in the last Read.
  bool IsWritable() const { return polls_.back().revents != 0; }

  // Stops reading from a receiver. The others keep their index.
  void StopReading(size_t index) { polls_[index].fd = -1; }
  bool IsRead(size_t index) const { return polls_[index].fd >= 0; }

  size_t Count() const { return received_.size(); }
  uint64_t Received(size_t index) const { return received_[index]; }
  // Number of bytes that every receiver still read from has received.
  uint64_t Least() const;

 private:
  void Take(size_t index);

  OnRead on_read_;
  std::vector<uint64_t> received_;
  std::vector<pollfd> polls_;  // the receivers, then the writer
  std::vector<uint8_t> buffer_;
};

}  // namespace bench
