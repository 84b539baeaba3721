// What the preloaded library does for a daemon: its wall clock is set forward and back by hours,
// and what it writes to its line is counted.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "sim/daemon_process.h"
#include "tests/soak/shim_memory.h"

namespace soak {

class Shim {
 public:
  // `library` is the path of libshim.so. Throws std::runtime_error.
  explicit Shim(std::string library);
  Shim(const Shim&) = delete;
  Shim& operator=(const Shim&) = delete;
  ~Shim();

  // Starts a daemon that has this clock and is counted.
  std::unique_ptr<sim::DaemonProcess> Launch(const std::string& daemon) const;

  void SetClock(std::chrono::seconds off) {
    memory_->offset_ns = std::chrono::nanoseconds(off).count();
  }

  // Bytes that daemons of this shim have given to the line.
  int64_t Written() const { return memory_->written; }

 private:
  std::string library_;
  ShimMemory* memory_;
};

}  // namespace soak
