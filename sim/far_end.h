// The device at the far end of the line: a head, a camera module or a lens.
//
// It receives the bytes that the daemon wrote and answers through a callback. It has no clock and
// no thread: callers pass the time, so a test can choose it.
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

  // Processes bytes from the line. `now` must not decrease.
  virtual void Feed(std::span<const uint8_t> bytes, Clock::time_point now) = 0;

  // Advances the simulation: turns motors, sends due answers, and reports a broken frame on a quiet
  // line as noise. Call it every few milliseconds. `now` must not decrease.
  virtual void Tick(Clock::time_point now) = 0;

  // Name in the output, e.g. "head"; at most 6 characters.
  virtual const char* Name() const = 0;

  // The position and display in words, as of the last Feed or Tick.
  virtual std::string Describe() const = 0;

  // True while Describe keeps changing, e.g. while a motor turns.
  virtual bool IsMoving() const = 0;

  // The bytes of a valid frame. on_words with their meaning follows.
  std::function<void(std::span<const uint8_t>)> on_frame = [](std::span<const uint8_t>) {};
  // The meaning of a frame in words.
  std::function<void(const std::string&)> on_words = [](const std::string&) {};
  // Bytes outside any valid frame.
  std::function<void(std::span<const uint8_t>)> on_noise = [](std::span<const uint8_t>) {};
  // Bytes for the daemon.
  std::function<void(std::span<const uint8_t>)> on_answer = [](std::span<const uint8_t>) {};
};

// After this much silence on the line, a partial frame counts as broken.
constexpr milliseconds kQuietAfter{50};

}  // namespace sim
