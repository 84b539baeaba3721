#include "sim/line_server.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

namespace sim {
namespace {

constexpr int kBitsPerByte = 10;  // start bit, 8 data bits, stop bit

struct SpeedRow {
  speed_t code;
  int bits_per_second;
};

constexpr std::array<SpeedRow, 8> kSpeeds = {{{B1200, 1200},
                                              {B2400, 2400},
                                              {B4800, 4800},
                                              {B9600, 9600},
                                              {B19200, 19200},
                                              {B38400, 38400},
                                              {B57600, 57600},
                                              {B115200, 115200}}};

Clock::duration TimeOf(size_t bytes, const termios& line) {
  const auto* row = std::ranges::find(kSpeeds, cfgetospeed(&line), &SpeedRow::code);
  if (row == kSpeeds.end()) return Clock::duration::zero();
  const double seconds = static_cast<double>(bytes) * kBitsPerByte / row->bits_per_second;
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

LineServer::LineServer(PtyLine* line, FarEnd* far_end) : line_(line), far_end_(far_end) {
  far_end_->on_answer = [this](std::span<const uint8_t> bytes) { Dispatch(&to_daemon_, bytes); };
}

void LineServer::Step() {
  Receive();
  if (IsThrough(to_far_end_)) far_end_->Feed(std::exchange(to_far_end_.bytes, {}), Clock::now());
  far_end_->Tick(Clock::now());
  if (IsThrough(to_daemon_)) line_->Send(std::exchange(to_daemon_.bytes, {}));
}

// Waits for bytes from the daemon, for those under way, or for time to pass.
void LineServer::Wait() const {
  auto until = Clock::now() + kTickEvery;
  for (const Way* way : {&to_far_end_, &to_daemon_}) {
    if (!way->bytes.empty()) until = std::min(until, way->due);
  }
  const auto pause = std::max(Clock::duration::zero(), until - Clock::now());
  const timespec limit = {.tv_sec = 0,
                          .tv_nsec = static_cast<long>(
                              std::chrono::duration_cast<std::chrono::nanoseconds>(pause).count())};
  pollfd source = {.fd = line_->FarEnd(), .events = POLLIN, .revents = 0};
  ppoll(&source, 1, &limit, nullptr);
}

void LineServer::Receive() {
  std::array<uint8_t, 4096> bytes;
  const ssize_t count = read(line_->FarEnd(), bytes.data(), bytes.size());
  if (count > 0) Dispatch(&to_far_end_, {bytes.data(), static_cast<size_t>(count)});
}

// Puts bytes on their way behind those that are under way already.
void LineServer::Dispatch(Way* way, std::span<const uint8_t> bytes) const {
  if (way->bytes.empty()) way->due = Clock::now();
  if (is_paced_) way->due += TimeOf(bytes.size(), line_->Settings());
  way->bytes.insert(way->bytes.end(), bytes.begin(), bytes.end());
}

bool LineServer::IsThrough(const Way& way) {
  return !way.bytes.empty() && Clock::now() >= way.due;
}

}  // namespace sim
