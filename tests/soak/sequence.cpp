#include "tests/soak/sequence.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace soak {
namespace {

constexpr unsigned kDigits = kAlphabetSize - 1;
constexpr unsigned kMark = kDigits;  // the symbol behind the digits

uint8_t ByteAt(int alphabet, uint64_t place) {
  uint64_t number = place / kRecordSize;
  const uint64_t at = place % kRecordSize;
  for (uint64_t i = kRecordSize - 1; at != 0 && i > at; --i)
    number /= kDigits;
  const uint64_t symbol = at == 0 ? kMark : number % kDigits;
  return static_cast<uint8_t>(static_cast<uint64_t>(alphabet) * kAlphabetSize + symbol);
}

// The number of the record that these bytes are; nothing when they are none.
std::optional<uint64_t> NumberOf(int alphabet, std::span<const uint8_t> record) {
  uint64_t number = 0;
  for (size_t i = 0; i < record.size(); ++i) {
    const int symbol = record[i] - alphabet * kAlphabetSize;
    if (symbol < 0 || symbol > static_cast<int>(kMark)) return std::nullopt;
    if ((symbol == static_cast<int>(kMark)) != (i == 0)) return std::nullopt;
    if (i > 0) number = number * kDigits + static_cast<unsigned>(symbol);
  }
  return number;
}

std::string Deviation(uint64_t expected, uint64_t came) {
  std::string text =
      "expected byte " + std::to_string(expected) + ", came byte " + std::to_string(came) + ": ";
  if (came > expected) return text + std::to_string(came - expected) + " lost";
  if (came < expected) return text + std::to_string(expected - came) + " doubled";
  return text + "changed on the way";
}

}  // namespace

sim::Bytes SequenceBytes(int alphabet, uint64_t place, size_t size) {
  sim::Bytes bytes(size);
  std::ranges::generate(bytes, [&] { return ByteAt(alphabet, place++); });
  return bytes;
}

void SequenceCheck::ExpectPlace(uint64_t place) {
  place_ = place;
  is_located_ = true;
  pending_.clear();
}

void SequenceCheck::ExpectWithin(uint64_t low, uint64_t high) {
  low_ = low;
  high_ = high;
  is_located_ = false;
  is_joining_ = true;
  pending_.clear();
}

std::string SequenceCheck::Take(std::span<const uint8_t> bytes) {
  while (is_located_ && !bytes.empty()) {
    if (bytes.front() == ByteAt(alphabet_, place_)) {
      ++place_;
      bytes = bytes.subspan(1);
    } else {
      ExpectWithin(place_, place_);
      is_joining_ = false;
    }
  }
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  return is_located_ ? "" : Locate();
}

// Looks for a whole record in what is pending, and goes on from there.
std::string SequenceCheck::Locate() {
  for (size_t i = 0; i + kRecordSize <= pending_.size(); ++i) {
    const auto number = NumberOf(alphabet_, std::span(pending_).subspan(i, kRecordSize));
    if (!number.has_value()) continue;
    const uint64_t begin = *number * kRecordSize - std::min<uint64_t>(i, *number * kRecordSize);
    const uint64_t expected = std::clamp(begin, low_, high_);
    const bool is_same =
        std::ranges::equal(SequenceBytes(alphabet_, begin, i), std::span(pending_).first(i));
    const bool is_good = begin == expected && is_same;
    const bool was_joining = is_joining_;
    const sim::Bytes rest(pending_.begin() + static_cast<std::ptrdiff_t>(i), pending_.end());
    ExpectPlace(*number * kRecordSize);
    const std::string further = Take(rest);
    return is_good && was_joining ? further : Deviation(expected, begin) + further;
  }
  return "";
}

}  // namespace soak
