// The line at a steady rate: what an UART brings in, in small chunks at even distances, watched
// at every client.
#pragma once

#include <functional>
#include <vector>

#include "bench/running.h"
#include "bench/stream.h"

namespace bench {

// An UART with a FIFO of 16 bytes or more interrupts every one to some milliseconds.
constexpr std::chrono::milliseconds kChunkEvery{2};

class LineFeed {
 public:
  // Feeds the line of `running`, whose clients are connected, and reads its clients.
  explicit LineFeed(const Running& running);
  LineFeed(const LineFeed&) = delete;
  LineFeed& operator=(const LineFeed&) = delete;

  // Feeds for `seconds`, then waits until what was fed has arrived, or nothing has for a while.
  // Calls `watch`, if there is one, ten times a second.
  void Run(double seconds, const std::function<void()>& watch = nullptr);

  // The client `index` is read no more.
  void StopReading(size_t index) { receivers_.StopReading(index); }

  // Microseconds from feeding a chunk to its arrival, every chunk at every client that reads,
  // since the last call. One that has not arrived counts with the time it has been on its way.
  std::vector<double> TakeTimes();

  // Bytes that clients which read did not get: lost on their way, or not taken from the line,
  // which waits for nobody.
  uint64_t MissingBytes() const;

 private:
  struct Chunk {
    uint64_t end;  // place in the stream behind it
    sim::Clock::time_point fed;
  };

  void Feed(sim::Clock::duration since_start, uint64_t done_before);
  bool ReadUntil(sim::Clock::time_point end);
  void TimeArrivals(size_t index, sim::Clock::time_point when);

  int line_;
  Receivers receivers_;
  std::vector<Chunk> chunks_;
  std::vector<size_t> arrived_;  // chunks at each client
  uint64_t fed_ = 0;
  uint64_t refused_ = 0;
  std::vector<double> times_;
};

}  // namespace bench
