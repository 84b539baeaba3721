// A serial line on a pty: one end for the daemon, one for the bench.
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

// Bytes and their time of arrival.
struct Arrival {
  Clock::time_point time;
  Bytes bytes;
};

class PtyLine {
 public:
  // Opens a pty and links its daemon end to `path`, replacing an existing file. Throws
  // std::runtime_error if no pty is available.
  explicit PtyLine(const std::string& path = "/dev/ttyS1");

  // The far end: non-blocking, readable after the daemon wrote.
  int FarEnd() const { return far_.Get(); }

  // Line settings of the daemon's end.
  termios Settings() const;
  void SetSettings(const termios& settings);

  // Sends bytes to the daemon and waits for buffer space, at most kPatience; then throws
  // std::runtime_error.
  void Send(std::span<const uint8_t> bytes);

  // Returns `count` bytes from the daemon, or fewer on timeout.
  Bytes Receive(size_t count, milliseconds limit = kPatience);

  // Receives frames of `size` bytes and records when each was complete. `limit` applies to each
  // frame; a short last frame is returned, too.
  std::vector<Arrival> ReceiveFrames(size_t frames, size_t size, milliseconds limit = kPatience);

  // Closes both ends held here, which hangs up the line.
  void HangUp();

 private:
  tools::UniqueFd far_;
  tools::UniqueFd near_;  // keeps the line up while the daemon has closed it
};

}  // namespace sim
