// What is behind the line: a head, a camera module, a lens.
//
// It takes the bytes that the daemon wrote and answers by a callback. It has no clock and no
// thread of its own: time is handed in, so that a test may choose it, and goes on only with it.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "sim/wait.h"

namespace sim {

class FarEnd {
 public:
  FarEnd() = default;
  FarEnd(const FarEnd&) = delete;
  FarEnd& operator=(const FarEnd&) = delete;
  virtual ~FarEnd() = default;

  // Takes bytes from the line. `now` must not go back.
  virtual void Feed(std::span<const uint8_t> bytes, Clock::time_point now) = 0;

  // Lets time pass: motors turn, answers become due, a broken frame on a quiet line is noise.
  // Called every few milliseconds. `now` must not go back.
  virtual void Tick(Clock::time_point now) = 0;

  // What it is called in print, e.g. "head": 6 characters at most.
  virtual const char* Name() const = 0;

  // Where it is and what it shows, in words, as of the last Feed or Tick.
  virtual std::string Describe() const = 0;

  // Whether Describe is about to change by itself: a motor turns.
  virtual bool IsMoving() const = 0;

  // The bytes of a frame that it took; what it understood of them follows in words.
  std::function<void(std::span<const uint8_t>)> on_frame = [](std::span<const uint8_t>) {};
  // What it understood, in words.
  std::function<void(const std::string&)> on_words = [](const std::string&) {};
  // Bytes that are no frame.
  std::function<void(std::span<const uint8_t>)> on_noise = [](std::span<const uint8_t>) {};
  // Bytes that it sends.
  std::function<void(std::span<const uint8_t>)> on_answer = [](std::span<const uint8_t>) {};
};

// A line that is quiet for this long has no more bytes of a broken frame to come.
constexpr milliseconds kQuietAfter{50};

}  // namespace sim
