#include "bench/line_feed.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>

#include "bench/stream.h"

namespace bench {
namespace {

using sim::Clock;

constexpr std::chrono::milliseconds kWatchEvery{100};
constexpr std::chrono::milliseconds kTailPatience{1000};

// Sleeps until something of `polls` is ready or `end` has come. Returns false for the latter.
bool Wait(std::vector<pollfd>* polls, Clock::time_point end) {
  const auto left = std::chrono::nanoseconds(end - Clock::now()).count();
  if (left <= 0) return false;
  constexpr int64_t kNsPerS = 1'000'000'000;
  const timespec limit = {.tv_sec = left / kNsPerS, .tv_nsec = left % kNsPerS};
  return ppoll(polls->data(), polls->size(), &limit, nullptr) > 0;
}

double Microseconds(Clock::duration time) {
  return std::chrono::duration<double, std::micro>(time).count();
}

}  // namespace

LineFeed::LineFeed(Running* running) : running_(running) {
  for (const auto& client : running->Clients())
    receivers_.push_back({.fd = client->Fd()});
}

void LineFeed::StopReading(size_t index) {
  receivers_[index].reads = false;
}

void LineFeed::Run(double seconds, const std::function<void()>& watch) {
  const auto begin = Clock::now();
  const auto end =
      begin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  const uint64_t fed_before = fed_ + refused_;
  auto next_watch = begin;
  for (auto tick = begin; tick < end; tick += kChunkEvery) {
    while (ReadUntil(tick)) {
    }
    // Before a chunk is on its way: looking at the system's tables takes longer than a chunk does.
    if (watch && tick >= next_watch) {
      watch();
      next_watch += kWatchEvery;
    }
    Feed(tick + kChunkEvery - begin, fed_before);
  }
  for (auto patience = Clock::now() + kTailPatience; !HasAll();) {
    if (!ReadUntil(patience)) break;
    patience = Clock::now() + kTailPatience;
  }
}

// Feeds what the line has brought by now. Bytes that the contender left no room for are gone, as
// they are when an UART's buffer overruns.
void LineFeed::Feed(Clock::duration since_start, uint64_t fed_before) {
  const double due = std::chrono::duration<double>(since_start).count() * kLineBytesPerSecond;
  const uint64_t done = fed_ + refused_ - fed_before;
  const uint64_t size = static_cast<uint64_t>(due) - done;
  const auto bytes = StreamBytes(fed_, size);
  const auto now = Clock::now();
  const ssize_t written = write(running_->Line().FarEnd(), bytes.data(), bytes.size());
  const uint64_t taken = written > 0 ? static_cast<uint64_t>(written) : 0;
  refused_ += size - taken;
  if (taken == 0) return;
  fed_ += taken;
  chunks_.push_back({.end = fed_, .fed = now});
}

// Reads what has arrived by `end`. Returns false once `end` has come.
bool LineFeed::ReadUntil(Clock::time_point end) {
  std::vector<pollfd> polls;
  for (const Receiver& receiver : receivers_)
    polls.push_back({.fd = receiver.reads ? receiver.fd : -1, .events = POLLIN, .revents = 0});
  if (!Wait(&polls, end)) return false;
  for (size_t i = 0; i < polls.size(); ++i) {
    if (polls[i].revents != 0) Take(&receivers_[i]);
  }
  ForgetArrived();
  return true;
}

void LineFeed::Take(Receiver* receiver) {
  std::array<uint8_t, 4096> bytes;
  const ssize_t count = recv(receiver->fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (count <= 0) {
    receiver->reads = false;
    throw Unmeasured("a client that reads is dropped");
  }
  const auto now = Clock::now();
  CheckStream(receiver->received, {bytes.data(), static_cast<size_t>(count)});
  receiver->received += static_cast<uint64_t>(count);
  while (receiver->chunks - chunks_forgotten_ < chunks_.size()) {
    const Chunk& chunk = chunks_[receiver->chunks - chunks_forgotten_];
    if (chunk.end > receiver->received) break;
    times_.push_back(Microseconds(now - chunk.fed));
    ++receiver->chunks;
  }
}

bool LineFeed::HasAll() const {
  return std::all_of(receivers_.begin(), receivers_.end(), [this](const Receiver& receiver) {
    return !receiver.reads || receiver.received == fed_;
  });
}

void LineFeed::ForgetArrived() {
  uint64_t least = chunks_forgotten_ + chunks_.size();
  for (const Receiver& receiver : receivers_) {
    if (receiver.reads) least = std::min(least, receiver.chunks);
  }
  for (; chunks_forgotten_ < least; ++chunks_forgotten_)
    chunks_.pop_front();
}

std::vector<double> LineFeed::TakeTimes() {
  const auto now = Clock::now();
  for (const Receiver& receiver : receivers_) {
    if (!receiver.reads) continue;
    for (size_t i = receiver.chunks - chunks_forgotten_; i < chunks_.size(); ++i)
      times_.push_back(Microseconds(now - chunks_[i].fed));
  }
  return std::exchange(times_, {});
}

uint64_t LineFeed::MissingBytes() const {
  uint64_t missing = 0;
  for (const Receiver& receiver : receivers_) {
    if (receiver.reads) missing += refused_ + fed_ - receiver.received;
  }
  return missing;
}

}  // namespace bench
