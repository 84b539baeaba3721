// Carries bytes between a line and the far end behind it.
//
// Without a pace bytes are there as soon as the pty has them. With a pace they take the time
// that the line's speed asks for, 10 bits a byte, in both directions: a packet reaches the far
// end when its last byte would have, and an answer the daemon likewise.
#pragma once

#include "sim/far_end.h"
#include "sim/pty_line.h"

namespace sim {

// The fastest that time passes for the far end.
constexpr milliseconds kTickEvery{2};

class LineServer {
 public:
  // Takes over what the far end answers. Both must outlive the server.
  LineServer(PtyLine* line, FarEnd* far_end);
  LineServer(const LineServer&) = delete;
  LineServer& operator=(const LineServer&) = delete;

  // From now on bytes take their time on the line.
  void SetPaced() { is_paced_ = true; }

  // Carries what is there and due, and lets time pass for the far end.
  void Step();

  // Serves until `condition` is true or `limit` has passed. Returns the condition's last answer.
  template <typename Condition>
  bool ServeUntil(Condition condition, milliseconds limit = kPatience) {
    const auto end = Clock::now() + limit;
    while (!condition()) {
      if (Clock::now() >= end) return false;
      Wait();
      Step();
    }
    return true;
  }

 private:
  // Bytes on their way, and when the last of them is through.
  struct Way {
    Bytes bytes;
    Clock::time_point due;
  };

  void Wait() const;
  void Receive();
  static bool IsThrough(const Way& way);
  void Dispatch(Way* way, std::span<const uint8_t> bytes) const;

  PtyLine* line_;
  FarEnd* far_end_;
  bool is_paced_ = false;
  Way to_far_end_;
  Way to_daemon_;
};

}  // namespace sim
