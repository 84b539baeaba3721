// A serial line of a fuzz target: what the daemon writes is kept, what it reads comes from the
// input. One at a time.
//
// A byte of the input says what comes of a read: nothing until its time is over, or so many of
// the bytes behind it. At the input's end nothing comes any more.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/virtual_time.h"
#include "serial/serial_port.h"

namespace fuzz {

class FakeLine {
 public:
  explicit FakeLine(Input* input) : input_(input) {
    current_ = this;
    g_serial_port = &port_;
  }
  ~FakeLine() {
    g_serial_port = nullptr;
    current_ = nullptr;
  }
  FakeLine(const FakeLine&) = delete;
  FakeLine& operator=(const FakeLine&) = delete;

  // Each write of the daemon, in order.
  std::vector<std::vector<uint8_t>> writes;
  // Each byte that it read, and the number of writes before it.
  struct Reading {
    uint8_t byte;
    size_t writes_before;
  };
  std::vector<Reading> readings;

 private:
  static constexpr uint8_t kNothingComes = 0xC0;  // and above
  static constexpr int64_t kUsPerMs = 1000;

  static int Write(SerialPort* /*self*/, const void* buffer, int length) {
    const uint8_t* bytes = static_cast<const uint8_t*>(buffer);
    current_->writes.emplace_back(bytes, bytes + length);
    return length;
  }

  static int Read(SerialPort* /*self*/, void* buffer, int length, int timeout_ms) {
    return current_->Take(static_cast<uint8_t*>(buffer), length, timeout_ms);
  }

  int Take(uint8_t* buffer, int length, int timeout_ms) {
    const uint8_t how = input_->IsEmpty() ? kNothingComes : input_->Byte();
    if (how >= kNothingComes) {
      PassTime(timeout_ms * kUsPerMs);
      return SERIAL_READ_TIMEOUT;
    }
    const auto wanted = std::min(static_cast<size_t>(how % 16) + 1, static_cast<size_t>(length));
    const auto bytes = input_->Bytes(wanted);
    if (bytes.empty()) return SERIAL_READ_FAILED;
    for (const uint8_t byte : bytes)
      readings.push_back({byte, writes.size()});
    std::copy(bytes.begin(), bytes.end(), buffer);
    return static_cast<int>(bytes.size());
  }

  inline static FakeLine* current_ = nullptr;
  SerialPort port_ = {.fd = -1,
                      .saved = {},
                      .Close = [](SerialPort*) {},
                      .Write = Write,
                      .Read = Read,
                      .tells_transmitter = false};
  Input* input_;
};

}  // namespace fuzz
