// A serial line made of a pty: the daemon has one end, the bench the other.
#pragma once

#include <termios.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "sim/wait.h"
#include "tools/hex.h"
#include "tools/unique_fd.h"

namespace sim {

using Bytes = std::vector<uint8_t>;

using tools::Hex;

// Bytes that came together, and when.
struct Arrival {
  Clock::time_point time;
  Bytes bytes;
};

class PtyLine {
 public:
  // Opens a pty and puts a link to the daemon's end at `path` (replacing one that is there).
  // Throws std::runtime_error when there is none to be had.
  explicit PtyLine(const std::string& path = "/dev/ttyS1");

  // The far end: non-blocking, readable when the daemon wrote.
  int FarEnd() const { return far_.Get(); }

  // Line settings of the daemon's end.
  termios Settings() const;
  void SetSettings(const termios& settings);

  // Sends bytes to the daemon, waiting for room. Throws std::runtime_error when there is not enough
  // within kPatience.
  void Send(std::span<const uint8_t> bytes);

  // Takes what the daemon wrote: exactly `count` bytes, or fewer when `limit` passes first.
  Bytes Receive(size_t count, milliseconds limit = kPatience);

  // The same, cut into frames of `size` bytes with the time each was complete; `limit` is that of
  // each frame, and a last one that is short is returned too.
  std::vector<Arrival> ReceiveFrames(size_t frames, size_t size, milliseconds limit = kPatience);

  // Closes both ends held here: the daemon sees the line hang up.
  void HangUp();

 private:
  tools::UniqueFd far_;
  tools::UniqueFd near_;  // keeps the line up while the daemon has it closed
};

}  // namespace sim
