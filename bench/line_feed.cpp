#include "bench/line_feed.h"

#include <unistd.h>

#include <utility>

namespace bench {
namespace {

using sim::Clock;

constexpr std::chrono::milliseconds kWatchEvery{100};
constexpr std::chrono::milliseconds kTailPatience{1000};

double Microseconds(Clock::duration time) {
  return std::chrono::duration<double, std::micro>(time).count();
}

}  // namespace

LineFeed::LineFeed(const Running& running)
    : line_(running.Line()),
      receivers_(running.Clients(),
                 [this](size_t index, Clock::time_point when) { TimeArrivals(index, when); }),
      arrived_(receivers_.Count()) {}

void LineFeed::Run(double seconds, const std::function<void()>& watch) {
  const auto begin = Clock::now();
  const auto end =
      begin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  const uint64_t done_before = fed_ + refused_;
  auto next_watch = begin;
  for (auto tick = begin; tick < end; tick += kChunkEvery) {
    while (ReadUntil(tick)) {
    }
    // Before the chunk is sent, because reading the system's tables takes longer than a chunk's
    // transit.
    if (watch && tick >= next_watch) {
      watch();
      next_watch += kWatchEvery;
    }
    Feed(tick + kChunkEvery - begin, done_before);
  }
  while (receivers_.Least() < fed_ && ReadUntil(Clock::now() + kTailPatience)) {
  }
}

// Feeds the bytes due by now. Discards bytes for which the contender left no room, as a UART buffer
// overrun does.
void LineFeed::Feed(Clock::duration since_start, uint64_t done_before) {
  const double due = std::chrono::duration<double>(since_start).count() * kLineBytesPerSecond;
  const uint64_t size = static_cast<uint64_t>(due) - (fed_ + refused_ - done_before);
  const auto bytes = StreamBytes(fed_, size);
  const auto now = Clock::now();
  const ssize_t written = write(line_, bytes.data(), bytes.size());
  const uint64_t taken = written > 0 ? static_cast<uint64_t>(written) : 0;
  refused_ += size - taken;
  fed_ += taken;
  if (taken > 0) chunks_.push_back({.end = fed_, .fed = now});
}

// Reads bytes that arrive before `end`. Returns false once `end` has passed.
bool LineFeed::ReadUntil(Clock::time_point end) {
  const auto left = end - Clock::now();
  return left.count() > 0 && receivers_.Read(left);
}

void LineFeed::TimeArrivals(size_t index, Clock::time_point when) {
  size_t& chunk = arrived_[index];
  for (; chunk < chunks_.size() && chunks_[chunk].end <= receivers_.Received(index); ++chunk)
    times_.push_back(Microseconds(when - chunks_[chunk].fed));
}

std::vector<double> LineFeed::TakeTimes() {
  const auto now = Clock::now();
  for (size_t i = 0; i < receivers_.Count(); ++i) {
    for (size_t chunk = arrived_[i]; receivers_.IsRead(i) && chunk < chunks_.size(); ++chunk)
      times_.push_back(Microseconds(now - chunks_[chunk].fed));
  }
  return std::exchange(times_, {});
}

uint64_t LineFeed::MissingBytes() const {
  uint64_t missing = 0;
  for (size_t i = 0; i < receivers_.Count(); ++i) {
    if (receivers_.IsRead(i)) missing += refused_ + fed_ - receivers_.Received(i);
  }
  return missing;
}

}  // namespace bench
