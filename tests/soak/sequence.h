// Numbered bytes: every byte follows from its place, so that a lost, a doubled or a changed one
// shows, and how many.
//
// A stream has an alphabet of its own, so that several may be mixed on one line, byte by byte, and
// still be told apart. It consists of records: a mark, then the record's number in digits.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "sim/pty_line.h"

namespace soak {

constexpr int kAlphabetSize = 31;
constexpr uint64_t kRecordSize = 8;

// The first place behind `place` at which a record begins, or `place` itself.
constexpr uint64_t NextRecord(uint64_t place) {
  return (place + kRecordSize - 1) / kRecordSize * kRecordSize;
}

// `size` bytes of the stream with this alphabet, from `place` on. Alphabet N has the byte values
// from N * kAlphabetSize on.
sim::Bytes SequenceBytes(int alphabet, uint64_t place, size_t size);

// Follows a stream where it comes out.
class SequenceCheck {
 public:
  explicit SequenceCheck(int alphabet) : alphabet_(alphabet) {}

  // Takes the next bytes. Returns what is wrong with them: "" when nothing is. After an error it
  // goes on from wherever the stream does.
  std::string Take(std::span<const uint8_t> bytes);

  // The next byte is the one at this place.
  void ExpectPlace(uint64_t place);

  // The next byte is any one from `low` to `high`: found out by the first whole record.
  void ExpectWithin(uint64_t low, uint64_t high);
  void ExpectUpTo(uint64_t high) { high_ = high; }
  uint64_t High() const { return high_; }

  // Whether it is known where the stream is, and that: the place of the next byte.
  bool IsLocated() const { return is_located_; }
  uint64_t Place() const { return place_; }

 private:
  std::string Locate();

  int alphabet_;
  uint64_t place_ = 0;
  bool is_located_ = true;
  bool is_joining_ = false;  // rather than lost
  uint64_t low_ = 0;         // bounds of the place to be found
  uint64_t high_ = 0;
  sim::Bytes pending_;  // since it is not known where the stream is
};

}  // namespace soak
