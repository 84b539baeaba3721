#include "sim/pty_line.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace sim {

PtyLine::PtyLine(const std::string& path)
    : far_(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
  if (!far_.IsOpen() || grantpt(far_.Get()) != 0 || unlockpt(far_.Get()) != 0) {
    throw std::runtime_error(std::string("cannot open a pty: ") + strerror(errno));
  }
  const std::string near_path = ptsname(far_.Get());
  near_.Reset(open(near_path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  unlink(path.c_str());
  if (!near_.IsOpen() || symlink(near_path.c_str(), path.c_str()) != 0) {
    throw std::runtime_error("cannot link " + path + ": " + strerror(errno));
  }
}

termios PtyLine::Settings() const {
  termios settings = {};
  tcgetattr(near_.Get(), &settings);
  return settings;
}

void PtyLine::SetSettings(const termios& settings) {
  tcsetattr(near_.Get(), TCSANOW, &settings);
}

void PtyLine::Send(std::span<const uint8_t> bytes) {
  const auto end = Clock::now() + kPatience;
  while (!bytes.empty()) {
    const ssize_t sent = write(far_.Get(), bytes.data(), bytes.size());
    if (sent > 0) bytes = bytes.subspan(static_cast<size_t>(sent));
    if (sent < 0 && !WaitReady(far_.Get(), POLLOUT, end)) {
      throw std::runtime_error("timeout writing to the line");
    }
  }
}

Bytes PtyLine::Receive(size_t count, milliseconds limit) {
  const auto end = Clock::now() + limit;
  Bytes bytes(count);
  size_t received = 0;
  while (received < count && WaitReady(far_.Get(), POLLIN, end)) {
    const ssize_t got = read(far_.Get(), bytes.data() + received, count - received);
    if (got > 0) received += static_cast<size_t>(got);
    if (got < 0 && errno != EAGAIN) break;
  }
  bytes.resize(received);
  return bytes;
}

std::vector<Arrival> PtyLine::ReceiveFrames(size_t frames, size_t size, milliseconds limit) {
  std::vector<Arrival> arrivals;
  for (size_t i = 0; i < frames; ++i) {
    Bytes frame = Receive(size, limit);
    if (frame.empty()) break;
    arrivals.push_back({.time = Clock::now(), .bytes = std::move(frame)});
  }
  return arrivals;
}

void PtyLine::HangUp() {
  near_.Reset();
  far_.Reset();
}

}  // namespace sim
