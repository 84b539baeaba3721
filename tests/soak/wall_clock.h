// The wall clock of the daemon, which is set forward and back by hours.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "sim/daemon_process.h"
#include "tests/soak/clock_offset.h"

namespace soak {

class WallClock {
 public:
  // `library` is the path of libclock.so. Throws std::runtime_error.
  explicit WallClock(std::string library);
  WallClock(const WallClock&) = delete;
  WallClock& operator=(const WallClock&) = delete;
  ~WallClock();

  // Starts a daemon that has this clock.
  std::unique_ptr<sim::DaemonProcess> Launch(const std::string& daemon) const;

  void Set(std::chrono::seconds off) { offset_->store(std::chrono::nanoseconds(off).count()); }

 private:
  std::string library_;
  ClockOffset* offset_;
};

}  // namespace soak
