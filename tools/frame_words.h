// Explains the bytes of the line, and of related datagrams, in words.
//
// FrameDecoder splits one stream into frames. ExplainBytes takes complete input, which may contain
// datagrams. Does no I/O. A decoder belongs to one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

struct LineProtocol;
struct Match;

enum class Protocol : uint8_t {
  kAuto,  // any that matches; never the protocol of an explained frame
  // On the line.
  kPelco,     // heads, both directions
  kSd,        // SD module: the query for its model, and the reply
  kHd,        // micom of an HD module, both directions
  kFirmware,  // its firmware update: packets, answers
  kLens,      // registers of the lens micom, both directions
  // Datagrams.
  kSerialData,  // to SERIAL_DATA_PORT: bytes from the line
  kDaemon,      // to the daemon's UDP port
  kCommand,     // command channel
  kNone,        // noise
};

// Direction of bytes on the line. Some frames have a different meaning in each direction.
enum class Direction : uint8_t { kUnknown, kToDevice, kFromDevice };

enum class Verdict : uint8_t {
  kGood,
  kBadChecksum,
  kMalformed,  // a datagram whose length or fixed fields are wrong
  kCutOff,     // an incomplete frame
  kNoise,      // bytes outside any frame
};

struct ExplainedFrame {
  size_t offset;  // of the first byte in the stream
  std::vector<uint8_t> bytes;
  Protocol protocol;  // kNone for noise
  Verdict verdict;
  std::string words;  // its meaning and its faults; one line of printable ASCII
};

// Converts between a protocol and its name on the command line, e.g. "pelco-d".
const char* ProtocolName(Protocol protocol);
std::optional<Protocol> ProtocolByName(std::string_view name);
// Returns the names that the user may choose: those of the line's protocols, optionally also those
// of the datagrams.
std::vector<std::string> ProtocolNames(bool with_datagrams);

// "good", "bad-checksum", "malformed", "cut-off", "noise".
const char* VerdictName(Verdict verdict);

// Splits a stream into frames of the line's protocols.
//
// The result does not depend on how the bytes are divided among the calls. If bytes match several
// protocols, a valid checksum wins, then this order: SD module, Pelco-D for receiver 1, HD micom,
// lens, firmware, Pelco-D for another receiver. A damaged frame is reported only if no good frame
// begins inside it.
class FrameDecoder {
 public:
  // `offset` is the offset of the next byte. A datagram protocol counts as kAuto.
  explicit FrameDecoder(Protocol protocol = Protocol::kAuto,
                        Direction direction = Direction::kUnknown, size_t offset = 0);
  ~FrameDecoder();
  FrameDecoder(const FrameDecoder&) = delete;
  FrameDecoder& operator=(const FrameDecoder&) = delete;

  // Adds bytes and returns the frames that are certain now, in order. Keeps an incomplete frame for
  // the next call, but not noise: a run of noise ends with the call.
  std::vector<ExplainedFrame> Feed(std::span<const uint8_t> bytes);

  // Explains the bytes kept so far: no more are expected, or not soon.
  std::vector<ExplainedFrame> Flush();

  // Reports that a firmware packet was sent the other way, so the next byte is its answer.
  void ExpectFirmwareAnswer() { answer_due_ = true; }

 private:
  using Bytes = std::span<const uint8_t>;

  std::vector<ExplainedFrame> Scan(bool is_final);
  Match Choose(Bytes rest, bool is_final, const LineProtocol** row) const;
  Match LookWithin(const Match& damaged, Bytes rest, bool is_final) const;
  bool TakesAnswer(uint8_t byte, bool is_other_frame);
  ExplainedFrame Explain(const Match& match, const LineProtocol& row, Bytes bytes);

  std::vector<LineProtocol> protocols_;  // to try, the preferred first
  bool is_firmware_;                     // the user chose kFirmware
  bool is_lenient_;                      // the user chose a protocol
  Direction direction_;
  size_t offset_;                 // of the first kept byte
  std::vector<uint8_t> pending_;  // kept bytes
  bool answer_due_ = false;
};

// Explains complete input. If it begins with a datagram (with kAuto: with bytes that look like
// one), explains the datagram and the frames in it; treats the rest as a stream.
std::vector<ExplainedFrame> ExplainBytes(std::span<const uint8_t> bytes,
                                         Protocol protocol = Protocol::kAuto,
                                         Direction direction = Direction::kUnknown);

// Returns the bytes carried by a serial data datagram, as a part of `datagram`. Returns an empty
// span and sets `problem` if it is not a valid one.
std::optional<std::span<const uint8_t>> SerialDataOf(std::span<const uint8_t> datagram,
                                                     std::string* problem);

}  // namespace tools
