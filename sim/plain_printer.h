// Prints the events of the virtual device as plain lines, "WHO    | TEXT".
//
// Repeated words are printed once with a count, and a moving far end is described twice a second.
// On a terminal, long lines of the daemon are truncated.
#pragma once

#include <cstdio>
#include <string>

#include "sim/virtual_device.h"

namespace sim {

class PlainPrinter : public EventSink {
 public:
  // `out` must outlive the printer.
  explicit PlainPrinter(FILE* out);
  ~PlainPrinter() override;

  void Take(DeviceEvent event) override;
  void Observe(const FarEnd& far_end) override;

 private:
  void Print(const char* who, const std::string& text);
  void FlushWords();

  FILE* out_;
  bool is_terminal_;
  // Words not printed yet, because they may repeat.
  DeviceEvent pending_ = {};
  int pending_count_ = 0;
  Clock::time_point pending_since_;
  // The last report on the far end.
  bool was_moving_ = false;
  Clock::time_point last_report_;
  std::string last_description_;
};

}  // namespace sim
