// A serial line for tests of the lens code: records every frame written and answers reads with a
// prepared reply. Only one may exist at a time.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "lens/i2m.h"
#include "serial/serial_port.h"
#include "sim/pty_line.h"
#include "util/sleep.h"

class LensLine {
 public:
  LensLine() {
    current_ = this;
    port_.Write = Write;
    port_.Read = Read;
    g_serial_port = &port_;
  }
  ~LensLine() {
    g_serial_port = nullptr;
    current_ = nullptr;
  }
  LensLine(const LensLine&) = delete;
  LensLine& operator=(const LensLine&) = delete;

  // Returns the writes since the last call, each as "A5 40 0B 00 04 F4".
  std::vector<std::string> TakeWrites() {
    std::vector<std::string> writes;
    writes.swap(writes_);
    return writes;
  }

  // Sets the bytes for later reads.
  void Reply(std::vector<uint8_t> bytes) { reply_ = std::move(bytes); }

 private:
  static int Write(SerialPort* /*self*/, const void* buffer, int length) {
    current_->writes_.push_back(
        sim::Hex({static_cast<const uint8_t*>(buffer), static_cast<size_t>(length)}));
    return length;
  }

  static int Read(SerialPort* /*self*/, void* buffer, int length, int timeout_ms) {
    std::vector<uint8_t>& reply = current_->reply_;
    if (reply.empty()) {
      CUTIL_SleepUs(timeout_ms * int64_t{1000});
      return SERIAL_READ_TIMEOUT;
    }
    const size_t count = std::min(reply.size(), static_cast<size_t>(length));
    std::copy_n(reply.begin(), count, static_cast<uint8_t*>(buffer));
    reply.erase(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(count));
    return static_cast<int>(count);
  }

  inline static LensLine* current_ = nullptr;
  SerialPort port_{};
  std::vector<std::string> writes_;
  std::vector<uint8_t> reply_;
};
