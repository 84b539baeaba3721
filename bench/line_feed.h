// Feeds the line at a steady rate, in small, evenly spaced chunks like those of a UART, and watches
// every client.
#pragma once

#include <functional>
#include <vector>

#include "bench/running.h"
#include "bench/stream.h"

namespace bench {

// A UART with a FIFO of at least 16 bytes interrupts every one to a few milliseconds.
constexpr std::chrono::milliseconds kChunkEvery{2};

class LineFeed {
 public:
  // Feeds the line of `running`, whose clients are connected, and reads from them.
  explicit LineFeed(const Running& running);
  LineFeed(const LineFeed&) = delete;
  LineFeed& operator=(const LineFeed&) = delete;

  // Feeds for `seconds`, then waits until everything has arrived, or nothing more does. Calls
  // `watch`, if set, ten times a second.
  void Run(double seconds, const std::function<void()>& watch = nullptr);

  // Stops reading from client `index`.
  void StopReading(size_t index) { receivers_.StopReading(index); }

  // Microseconds from feeding each chunk to its arrival at each reading client, since the last
  // call. A chunk still in transit counts with its time so far.
  std::vector<double> TakeTimes();

  // Bytes missing at the reading clients: lost in transit, or discarded when the line had no room
  // for them.
  uint64_t MissingBytes() const;

 private:
  struct Chunk {
    uint64_t end;  // stream offset of its end
    sim::Clock::time_point fed;
  };

  void Feed(sim::Clock::duration since_start, uint64_t done_before);
  bool ReadUntil(sim::Clock::time_point end);
  void TimeArrivals(size_t index, sim::Clock::time_point when);

  int line_;
  Receivers receivers_;
  std::vector<Chunk> chunks_;
  std::vector<size_t> arrived_;  // chunks received by each client
  uint64_t fed_ = 0;
  uint64_t refused_ = 0;
  std::vector<double> times_;
};

}  // namespace bench
