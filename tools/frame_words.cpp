#include "tools/frame_words.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "ipc/cicomm.h"
#include "module/micom_firmware.h"
#include "relay/daemon_datagram.h"
#include "tools/frame_match.h"
#include "tools/frame_texts.h"
#include "util/bytes.h"

namespace tools {
namespace {

using Bytes = std::span<const uint8_t>;
using Frames = std::vector<ExplainedFrame>;

struct NameRow {
  Protocol protocol;
  const char* name;
};

constexpr std::array<NameRow, 10> kNames = {{
    {Protocol::kAuto, "auto"},
    {Protocol::kPelco, "pelco-d"},
    {Protocol::kSd, "sd-module"},
    {Protocol::kHd, "hd-micom"},
    {Protocol::kFirmware, "firmware"},
    {Protocol::kLens, "lens"},
    {Protocol::kSerialData, "serial-data"},
    {Protocol::kDaemon, "daemon"},
    {Protocol::kCommand, "command"},
    {Protocol::kNone, "none"},
}};

bool IsDatagram(Protocol protocol) {
  return protocol == Protocol::kSerialData || protocol == Protocol::kDaemon ||
         protocol == Protocol::kCommand;
}

std::vector<uint8_t> Copy(Bytes bytes) {
  return {bytes.begin(), bytes.end()};
}

std::string NoiseWords(Bytes bytes) {
  const std::string words = Count(bytes.size(), "byte") + " outside any frame";
  const bool is_text =
      std::ranges::all_of(bytes, [](uint8_t byte) { return byte >= ' ' && byte <= '~'; });
  return is_text ? words + ": \"" + std::string(bytes.begin(), bytes.end()) + "\"" : words;
}

}  // namespace

const char* ProtocolName(Protocol protocol) {
  return std::ranges::find(kNames, protocol, &NameRow::protocol)->name;
}

std::optional<Protocol> ProtocolByName(std::string_view name) {
  const auto* row = std::ranges::find(kNames, name, &NameRow::name);
  if (row == kNames.end() || row->protocol == Protocol::kNone) return std::nullopt;
  return row->protocol;
}

std::vector<std::string> ProtocolNames(bool with_datagrams) {
  std::vector<std::string> names;
  for (const NameRow& row : kNames) {
    if (row.protocol == Protocol::kNone || (IsDatagram(row.protocol) && !with_datagrams)) continue;
    names.emplace_back(row.name);
  }
  return names;
}

const char* VerdictName(Verdict verdict) {
  constexpr const char* kVerdicts[] = {"good", "bad-checksum", "malformed", "cut-off", "noise"};
  return kVerdicts[static_cast<size_t>(verdict)];
}

// --- Streams -----------------------------------------------------------------------------------

FrameDecoder::FrameDecoder(Protocol protocol, Direction direction, size_t offset)
    : protocols_(LineProtocols(IsDatagram(protocol) ? Protocol::kAuto : protocol)),
      is_firmware_(protocol == Protocol::kFirmware),
      is_lenient_(protocol != Protocol::kAuto && !IsDatagram(protocol)),
      direction_(direction),
      offset_(offset) {}

FrameDecoder::~FrameDecoder() = default;

std::vector<ExplainedFrame> FrameDecoder::Feed(std::span<const uint8_t> bytes) {
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  return Scan(false);
}

std::vector<ExplainedFrame> FrameDecoder::Flush() {
  return Scan(true);
}

std::vector<ExplainedFrame> FrameDecoder::Scan(bool is_final) {
  Frames frames;
  size_t noise_at = 0;
  size_t at = 0;
  const Bytes all(pending_);
  const auto emit = [&](ExplainedFrame frame, size_t offset) {
    frame.offset = offset_ + offset;
    frames.push_back(std::move(frame));
  };
  const auto end_noise = [&] {
    const Bytes noise = all.subspan(noise_at, at - noise_at);
    if (noise.empty()) return;
    emit({0, Copy(noise), Protocol::kNone, Verdict::kNoise, NoiseWords(noise)}, noise_at);
  };
  while (at < all.size()) {
    const Bytes rest = all.subspan(at);
    const LineProtocol* row = nullptr;
    const Match match = Choose(rest, is_final, &row);
    const bool is_frame = match.kind != Match::kNo;
    if (TakesAnswer(rest[0], is_frame)) {
      end_noise();
      emit({0, Copy(rest.first(1)), Protocol::kFirmware, Verdict::kGood,
            FirmwareAnswerText(rest[0])},
           at);
      noise_at = ++at;
    } else if (match.kind == Match::kMore && !is_final) {
      break;
    } else if (is_frame) {
      end_noise();
      emit(Explain(match, *row, rest.first(match.size)), at);
      noise_at = at += match.size;
    } else {
      ++at;
    }
  }
  end_noise();
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(at));
  offset_ += at;
  return frames;
}

// Returns the frame at the start of `rest` and its protocol. kMore with is_final: `rest` is an
// incomplete frame.
Match FrameDecoder::Choose(Bytes rest, bool is_final, const LineProtocol** row) const {
  const Look look = {rest, direction_, is_final, is_lenient_};
  Match damaged;
  for (const LineProtocol& candidate : protocols_) {
    Match match = candidate.match(look);
    if (match.kind == Match::kNo) continue;
    const bool is_certain = match.kind == Match::kGood || (match.kind == Match::kMore && !is_final);
    if (is_certain) {
      *row = &candidate;
      return match;
    }
    if (damaged.kind != Match::kNo) continue;
    if (match.kind == Match::kMore) {
      if (!match.is_evident) continue;
      match.size = rest.size();
    }
    damaged = match;
    *row = &candidate;
  }
  // The end mark is sufficient evidence of a packet.
  const bool is_packet =
      damaged.kind == Match::kBadChecksum && (*row)->protocol == Protocol::kFirmware;
  return damaged.kind == Match::kNo || is_packet ? damaged : LookWithin(damaged, rest, is_final);
}

// A good frame inside a damaged one cuts the damaged one off. While more bytes may complete such a
// frame, the result is uncertain.
Match FrameDecoder::LookWithin(const Match& damaged, Bytes rest, bool is_final) const {
  for (size_t at = 1; at < damaged.size; ++at) {
    const Look look = {rest.subspan(at), direction_, is_final, is_lenient_};
    for (const LineProtocol& candidate : protocols_) {
      if (candidate.protocol == Protocol::kFirmware) continue;
      const Match match = candidate.match(look);
      if (match.kind == Match::kGood) return {.kind = Match::kMore, .size = at};
      if (match.kind == Match::kMore && !is_final) return match;
    }
  }
  return damaged;
}

// Returns true if a byte is the answer to a firmware packet. If an answer is due, any byte that
// cannot begin another frame is one.
bool FrameDecoder::TakesAnswer(uint8_t byte, bool is_other_frame) {
  const bool is_accepted = byte == MICOM_ACCEPTED;
  const bool is_answer =
      answer_due_ ? is_accepted || !is_other_frame : is_accepted && is_firmware_ && !is_other_frame;
  if (is_answer) answer_due_ = false;
  return is_answer;
}

ExplainedFrame FrameDecoder::Explain(const Match& match, const LineProtocol& row, Bytes bytes) {
  ExplainedFrame frame = {0, Copy(bytes), row.protocol, Verdict::kGood, ""};
  if (match.kind == Match::kMore) {
    frame.verdict = Verdict::kCutOff;
    frame.words = "cut off after " + Count(bytes.size(), "byte");
    return frame;
  }
  frame.words = row.text(bytes, direction_);
  if (match.kind == Match::kBadChecksum) {
    frame.verdict = Verdict::kBadChecksum;
    frame.words = "wrong checksum (" + HexNumber(match.found, row.checksum_digits) + ", expected " +
                  HexNumber(match.expected, row.checksum_digits) + "): " + frame.words;
  }
  answer_due_ = row.protocol == Protocol::kFirmware && bytes[0] == MICOM_START &&
                direction_ == Direction::kUnknown;
  return frame;
}

// --- Datagrams ---------------------------------------------------------------------------------

namespace {

constexpr std::string_view kSerialDataMagic = SERIAL_DATA_MAGIC;
constexpr std::string_view kCommandMagic = "ICOM";

bool BeginsWith(Bytes bytes, std::string_view text) {
  return bytes.size() >= text.size() && memcmp(bytes.data(), text.data(), text.size()) == 0;
}

size_t SerialCount(Bytes datagram) {
  return LoadLe32(&datagram[offsetof(SerialDataDatagram, count)]);
}

// Returns the fault in the header of a serial data datagram, or "".
std::string SerialHeaderProblem(Bytes datagram) {
  if (!BeginsWith(datagram, kSerialDataMagic)) {
    return "it does not begin with " + std::string(kSerialDataMagic);
  }
  if (datagram.size() < SERIAL_DATA_HEADER_SIZE) {
    return "its header is cut off after " + Count(datagram.size(), "byte");
  }
  const uint32_t kind = LoadLe32(&datagram[offsetof(SerialDataDatagram, kind)]);
  if (kind != SERIAL_DATA_KIND) {
    return "its kind is " + std::to_string(kind) + ", not " + std::to_string(SERIAL_DATA_KIND);
  }
  const size_t count = SerialCount(datagram);
  if (count < 1 || count > SERIAL_DATA_MAX) {
    return "it announces " + Count(count, "byte") + ", not 1 to " + std::to_string(SERIAL_DATA_MAX);
  }
  return "";
}

std::string CountProblem(size_t announced, size_t there) {
  return "it announces " + Count(announced, "byte") + ", " + std::to_string(there) +
         (there == 1 ? " is there" : " are there");
}

// Explains one datagram at the start of the remaining bytes, and its contents.
class DatagramReader {
 public:
  DatagramReader(Bytes bytes, Protocol protocol, bool guess)
      : all_(bytes), protocol_(protocol), guess_(guess) {}

  Frames Read(Direction direction) {
    while (at_ < all_.size() && ReadDatagram()) {
    }
    if (at_ < all_.size()) {
      TakeStream(all_.size() - at_, IsDatagram(protocol_) ? Protocol::kAuto : protocol_, direction);
    }
    return std::move(frames_);
  }

 private:
  Bytes Rest() const { return all_.subspan(at_); }

  // Returns false if there is no datagram.
  bool ReadDatagram() {
    const Bytes rest = Rest();
    if (protocol_ == Protocol::kSerialData || (guess_ && BeginsWith(rest, kSerialDataMagic))) {
      ReadSerialData();
    } else if (protocol_ == Protocol::kCommand || (guess_ && BeginsWith(rest, kCommandMagic))) {
      ReadCommand();
    } else if (protocol_ == Protocol::kDaemon || (guess_ && at_ == 0 && LooksLikeDaemon(rest))) {
      ReadDaemon();
    } else {
      return false;
    }
    return true;
  }

  static bool LooksLikeDaemon(Bytes rest) {
    if (rest.size() < RS232_UDP_CODE_SIZE) return false;
    const uint16_t code = LoadLe16(rest.data());
    return (code == RS232_UDP_WRITE && rest.size() > RS232_UDP_CODE_SIZE) ||
           (code == RS232_UDP_STOP && rest.size() == RS232_UDP_CODE_SIZE);
  }

  void Take(size_t size, Protocol protocol, Verdict verdict, std::string words) {
    frames_.push_back({at_, Copy(Rest().first(size)), protocol, verdict, std::move(words)});
    at_ += size;
  }

  void TakeStream(size_t size, Protocol protocol, Direction direction) {
    FrameDecoder decoder(protocol, direction, at_);
    for (const Frames& part : {decoder.Feed(Rest().first(size)), decoder.Flush()})
      frames_.insert(frames_.end(), part.begin(), part.end());
    at_ += size;
  }

  void ReadSerialData() {
    const std::string problem = SerialHeaderProblem(Rest());
    if (!problem.empty()) {
      Take(Rest().size(), Protocol::kSerialData, Verdict::kMalformed,
           "invalid serial data datagram: " + problem);
      return;
    }
    const size_t count = SerialCount(Rest());
    const size_t there = std::min(count, Rest().size() - SERIAL_DATA_HEADER_SIZE);
    const bool is_whole = there == count;
    Take(SERIAL_DATA_HEADER_SIZE, Protocol::kSerialData,
         is_whole ? Verdict::kGood : Verdict::kCutOff,
         is_whole ? Count(count, "byte") + " from the line"
                  : "bytes from the line: " + CountProblem(count, there));
    TakeStream(there, Protocol::kAuto, Direction::kFromDevice);
  }

  void ReadCommand() {
    const Bytes rest = Rest();
    if (!BeginsWith(rest, kCommandMagic) || rest.size() < CICOMM_HEADER_SIZE) {
      Take(rest.size(), Protocol::kCommand, Verdict::kMalformed,
           "invalid command: it does not begin with a header of " +
               Count(CICOMM_HEADER_SIZE, "byte") + " and " + std::string(kCommandMagic));
      return;
    }
    CicommHeader header;
    memcpy(&header, rest.data(), sizeof(header));
    const size_t size = header.size.Get();
    const size_t there = std::min(size, rest.size() - CICOMM_HEADER_SIZE);
    std::string words =
        CommandText(header.command.GetSigned(), rest.subspan(CICOMM_HEADER_SIZE, there));
    Verdict verdict = Verdict::kGood;
    if (header.port.GetSigned() > 0) {
      words += ", answer to port " + std::to_string(header.port.GetSigned());
    }
    if (there < size) {
      verdict = Verdict::kCutOff;
      words += "; " + CountProblem(size, there);
    }
    if (header.version.Get() != CICOMM_VERSION) {
      verdict = Verdict::kMalformed;
      words += "; version " + std::to_string(header.version.Get()) + ", not " +
               std::to_string(CICOMM_VERSION);
    }
    Take(CICOMM_HEADER_SIZE + there, Protocol::kCommand, verdict, std::move(words));
  }

  void ReadDaemon() {
    const Bytes rest = Rest();
    if (rest.size() < RS232_UDP_CODE_SIZE) {
      Take(rest.size(), Protocol::kDaemon, Verdict::kMalformed,
           "incomplete code; the daemon ignores it");
      return;
    }
    const uint16_t code = LoadLe16(rest.data());
    const size_t carried = rest.size() - RS232_UDP_CODE_SIZE;
    if (code == RS232_UDP_WRITE) {
      Take(RS232_UDP_CODE_SIZE, Protocol::kDaemon, Verdict::kGood,
           "write " + Count(carried, "byte") + " to the line");
      TakeStream(carried, Protocol::kAuto, Direction::kToDevice);
    } else if (code == RS232_UDP_STOP) {
      Take(rest.size(), Protocol::kDaemon, Verdict::kGood, "stop the daemon");
    } else {
      Take(rest.size(), Protocol::kDaemon, Verdict::kMalformed,
           "unknown code " + HexNumber(code, 4) + "; the daemon ignores it");
    }
  }

  Bytes all_;
  Protocol protocol_;
  bool guess_;
  size_t at_ = 0;
  Frames frames_;
};

}  // namespace

std::vector<ExplainedFrame> ExplainBytes(std::span<const uint8_t> bytes, Protocol protocol,
                                         Direction direction) {
  const bool guess = protocol == Protocol::kAuto && direction == Direction::kUnknown;
  return DatagramReader(bytes, protocol, guess).Read(direction);
}

std::optional<std::span<const uint8_t>> SerialDataOf(std::span<const uint8_t> datagram,
                                                     std::string* problem) {
  *problem = SerialHeaderProblem(datagram);
  if (!problem->empty()) return std::nullopt;
  const Bytes carried = datagram.subspan(SERIAL_DATA_HEADER_SIZE);
  if (carried.size() != SerialCount(datagram)) {
    *problem = CountProblem(SerialCount(datagram), carried.size());
    return std::nullopt;
  }
  return carried;
}

}  // namespace tools
