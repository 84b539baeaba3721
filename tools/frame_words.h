// Explains the bytes of the line, and of the datagrams around it, in words.
//
// FrameDecoder cuts one stream into frames; ExplainBytes takes bytes that are all there, which
// may be datagrams. Free of I/O. A decoder belongs to one thread.
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
  kAuto,  // whichever fits; never that of an explained frame
  // On the line.
  kPelco,     // heads, both ways
  kSd,        // SD module: the query for its model, its reply
  kHd,        // micom of an HD module, both ways
  kFirmware,  // its firmware update: packets, answers
  kLens,      // registers of the lens micom, both ways
  // Datagrams.
  kSerialData,  // to SERIAL_DATA_PORT: bytes that came from the line
  kDaemon,      // to the daemon's UDP port
  kCommand,     // command channel
  kNone,        // noise
};

// Which way bytes went on the line. Some frames mean one thing one way and another the other.
enum class Direction : uint8_t { kUnknown, kToDevice, kFromDevice };

enum class Verdict : uint8_t {
  kGood,
  kBadChecksum,
  kMalformed,  // a datagram whose length or fixed fields are wrong
  kCutOff,     // the start of a frame whose rest did not come
  kNoise,      // bytes of no frame
};

struct ExplainedFrame {
  size_t offset;  // of the first byte in the stream
  std::vector<uint8_t> bytes;
  Protocol protocol;  // kNone for noise
  Verdict verdict;
  std::string words;  // what it says, and what is wrong with it; printable ASCII in one line
};

// The name of a protocol on a command line, e.g. "pelco-d", and back.
const char* ProtocolName(Protocol protocol);
std::optional<Protocol> ProtocolByName(std::string_view name);
// The names that a user may choose from: those of the line, or the datagrams' as well.
std::vector<std::string> ProtocolNames(bool with_datagrams);

// "good", "bad-checksum", "malformed", "cut-off", "noise".
const char* VerdictName(Verdict verdict);

// Cuts a stream into frames of the line's protocols.
//
// What frames there are does not depend on the pieces in which bytes come. Where bytes could be
// frames of several protocols a valid checksum wins, then this order: SD module, Pelco-D for
// receiver 1, HD micom, lens, firmware, Pelco-D for another receiver. A damaged frame is one only
// where no good one begins within it.
class FrameDecoder {
 public:
  // `offset` is that of the first byte to come. A protocol of datagrams counts as kAuto.
  explicit FrameDecoder(Protocol protocol = Protocol::kAuto,
                        Direction direction = Direction::kUnknown, size_t offset = 0);
  ~FrameDecoder();
  FrameDecoder(const FrameDecoder&) = delete;
  FrameDecoder& operator=(const FrameDecoder&) = delete;

  // Takes bytes; returns what is certain now, in order. The start of a frame is kept for the next
  // call, noise is not: a run of it ends with the call.
  std::vector<ExplainedFrame> Feed(std::span<const uint8_t> bytes);

  // Nothing more is coming, or not soon: explains what is kept.
  std::vector<ExplainedFrame> Flush();

  // A firmware packet went the other way: the next byte is its answer.
  void ExpectFirmwareAnswer() { answer_due_ = true; }

 private:
  using Bytes = std::span<const uint8_t>;

  std::vector<ExplainedFrame> Scan(bool is_final);
  Match Choose(Bytes rest, bool is_final, const LineProtocol** row) const;
  Match LookWithin(const Match& damaged, Bytes rest, bool is_final) const;
  bool TakesAnswer(uint8_t byte, bool is_other_frame);
  ExplainedFrame Explain(const Match& match, const LineProtocol& row, Bytes bytes);

  std::vector<LineProtocol> protocols_;  // to try, the preferred first
  bool is_firmware_;                     // that protocol was chosen
  bool is_lenient_;                      // one was
  Direction direction_;
  size_t offset_;                 // of the first kept byte
  std::vector<uint8_t> pending_;  // kept bytes
  bool answer_due_ = false;
};

// Explains bytes of which no more are coming. Bytes that begin with a datagram, or with kAuto
// look like one, are explained as such, with the frames that it carries behind it; the rest is a
// stream.
std::vector<ExplainedFrame> ExplainBytes(std::span<const uint8_t> bytes,
                                         Protocol protocol = Protocol::kAuto,
                                         Direction direction = Direction::kUnknown);

// The bytes that a serial data datagram carries, within `datagram`; nothing when it is none, and
// then why in `problem`.
std::optional<std::span<const uint8_t>> SerialDataOf(std::span<const uint8_t> datagram,
                                                     std::string* problem);

}  // namespace tools
