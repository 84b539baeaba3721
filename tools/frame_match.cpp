#include "tools/frame_match.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "lens/i2m.h"
#include "module/hd_frame.h"
#include "module/micom_firmware.h"
#include "relay/pelco_d.h"
#include "tools/frame_texts.h"
#include "util/bytes.h"

namespace tools {
namespace {

constexpr int kSumDigits = 2;
constexpr int kCrcDigits = 4;

constexpr Match kNoMatch = {};

Match More(bool is_evident) {
  return {.kind = Match::kMore, .is_evident = is_evident};
}

// Matches a frame of `size` bytes by its checksum. Reports a bad one only if the rest of the frame
// is convincing.
Match Judge(size_t size, unsigned found, unsigned expected, bool is_convincing) {
  if (found == expected) return {.kind = Match::kGood, .size = size};
  if (!is_convincing) return kNoMatch;
  return {.kind = Match::kBadChecksum, .size = size, .found = found, .expected = expected};
}

unsigned SumOf(std::span<const uint8_t> bytes) {
  return std::accumulate(bytes.begin(), bytes.end(), 0U) & 0xFF;
}

// Returns true if the given bytes, as far as present, are 0.
template <size_t kCount>
bool AreZero(std::span<const uint8_t> bytes, const std::array<size_t, kCount>& places) {
  return std::ranges::all_of(places,
                             [&](size_t at) { return at >= bytes.size() || bytes[at] == 0; });
}

// --- Pelco-D -----------------------------------------------------------------------------------

Match MatchPelco(const Look& look, bool is_own_receiver) {
  if (look.rest[PELCO_SYNC_AT] != PELCO_SYNC) return kNoMatch;
  const bool is_convincing = is_own_receiver || look.is_lenient;
  if (look.rest.size() < PELCO_FRAME_SIZE) return More(is_convincing && look.rest.size() > 2);
  const auto covered = look.rest.subspan(PELCO_ADDRESS_AT, PELCO_CHECKSUM_AT - PELCO_ADDRESS_AT);
  return Judge(PELCO_FRAME_SIZE, look.rest[PELCO_CHECKSUM_AT], SumOf(covered), is_convincing);
}

// Returns true if the receiver, as far as present, is that of this line.
bool HasOwnReceiver(const Look& look) {
  return look.rest.size() <= PELCO_ADDRESS_AT || look.rest[PELCO_ADDRESS_AT] == PELCO_ADDRESS;
}

Match MatchOwnPelco(const Look& look) {
  return HasOwnReceiver(look) ? MatchPelco(look, true) : kNoMatch;
}

Match MatchOtherPelco(const Look& look) {
  return HasOwnReceiver(look) ? kNoMatch : MatchPelco(look, false);
}

// The query FF 01 00 00 96 69 00, or a reply FF 01 00 00 00 MODEL SUM. A reply without a model is a
// stop frame if it may have been sent to the module.
Match MatchSd(const Look& look) {
  constexpr std::array<uint8_t, 2> kQuery = {0x96, 0x69};
  const Match match = MatchOwnPelco(look);
  if (match.kind == Match::kNo ||
      !AreZero(look.rest, std::array<size_t, 2>{PELCO_COMMAND1_AT, PELCO_COMMAND2_AT})) {
    return kNoMatch;
  }
  if (match.kind == Match::kMore) return match;
  const auto data = look.rest.subspan(PELCO_DATA1_AT, kQuery.size());
  const bool is_query = std::ranges::equal(data, kQuery);
  const bool is_reply = data[0] == 0 && look.direction != Direction::kToDevice &&
                        (data[1] != 0 || look.direction == Direction::kFromDevice);
  return is_query || is_reply ? match : kNoMatch;
}

// FF 01 ALARMS SUM. Four bytes that could be the start of a longer frame are an answer if their
// checksum is right.
Match MatchHeadAnswer(const Look& look) {
  constexpr size_t kSize = 4;
  constexpr size_t kCovered = 2;
  if (look.direction == Direction::kToDevice || look.rest[PELCO_SYNC_AT] != PELCO_SYNC ||
      !HasOwnReceiver(look)) {
    return kNoMatch;
  }
  if (look.rest.size() < kSize) return More(false);
  if (SumOf(look.rest.subspan(PELCO_ADDRESS_AT, kCovered)) != look.rest[kSize - 1]) {
    return kNoMatch;
  }
  if (look.direction == Direction::kUnknown) {
    const Match longer = MatchOwnPelco(look);
    if (longer.kind == Match::kGood) return kNoMatch;
    if (longer.kind == Match::kMore && !look.is_final) return longer;
  }
  return {.kind = Match::kGood, .size = kSize};
}

// --- HD micom ----------------------------------------------------------------------------------

bool IsHdCommand(uint8_t command) {
  constexpr std::array<uint8_t, 7> kCommands = {
      HD_VERSION, HD_RESOLUTION_FLAG, HD_SENSOR,         HD_PARAMETER,
      HD_LENS,    HD_MENU_KEY,        HD_FIRMWARE_UPDATE};
  return std::ranges::find(kCommands, command) != kCommands.end();
}

Match MatchHd(const Look& look) {
  constexpr std::array<size_t, 5> kUnused = {3, 4, 5, 7, 8};
  const auto rest = look.rest;
  if (rest[HD_SYNC_AT] != HD_SYNC) return kNoMatch;
  const bool has_access = rest.size() > HD_ACCESS_AT;
  if (has_access && rest[HD_ACCESS_AT] != HD_QUERY && rest[HD_ACCESS_AT] != HD_SETTING) {
    return kNoMatch;
  }
  if (!look.is_lenient && !AreZero(rest, kUnused)) return kNoMatch;
  const bool is_convincing = has_access && (look.is_lenient || IsHdCommand(rest[HD_COMMAND_AT]));
  if (rest.size() < HD_FRAME_SIZE) return More(is_convincing);
  return Judge(HD_FRAME_SIZE, rest[HD_CHECKSUM_AT], SumOf(rest.first(HD_CHECKSUM_AT)),
               is_convincing);
}

// --- Lens micom --------------------------------------------------------------------------------

Match MatchLens(const Look& look) {
  const auto rest = look.rest;
  if (rest[I2M_SYNC_AT] != I2M_SYNC) return kNoMatch;
  const bool has_kind = rest.size() > I2M_KIND_AT;
  if (has_kind && rest[I2M_KIND_AT] != I2M_WRITE && rest[I2M_KIND_AT] != I2M_READ) {
    return kNoMatch;
  }
  if (rest.size() < I2M_FRAME_SIZE) return More(has_kind);
  return Judge(I2M_FRAME_SIZE, rest[I2M_CHECKSUM_AT], SumOf(rest.first(I2M_CHECKSUM_AT)), true);
}

// --- Firmware ----------------------------------------------------------------------------------

// Matches a packet whose end mark is at `end_at`.
Match MatchPacketTo(const Look& look, size_t end_at) {
  const auto rest = look.rest;
  const size_t covered = end_at + 1;
  if (rest.size() > end_at && rest[end_at] != MICOM_END) return kNoMatch;
  if (rest.size() < covered + sizeof(uint16_t)) {
    return More(look.is_lenient || rest.size() > end_at);
  }
  return Judge(covered + sizeof(uint16_t), LoadLe16(&rest[covered]), MicomCrc(rest.first(covered)),
               true);
}

// Matches a tail, a header or a data packet: the good one; else, while more bytes may follow, one
// that may become good; else a bad one.
Match MatchPacket(const Look& look) {
  const auto rest = look.rest;
  if (look.direction == Direction::kFromDevice || rest[0] != MICOM_START) return kNoMatch;
  if (rest.size() < MICOM_DATA_BYTES_AT) return More(false);
  std::array<Match, 3> candidates = {};
  const size_t count = LoadLe16(&rest[MICOM_DATA_COUNT_AT]);
  if (rest[MICOM_TAIL_MARK_AT] == MICOM_TAIL) {
    candidates[0] = MatchPacketTo(look, MICOM_TAIL_END_AT);
  }
  candidates[1] = MatchPacketTo(look, MICOM_HEADER_END_AT);
  if (count >= 1 && count <= MICOM_DATA_MAX) {
    candidates[2] = MatchPacketTo(look, MICOM_DATA_BYTES_AT + count);
  }
  const auto find = [&candidates](Match::Kind kind) {
    const auto* found = std::ranges::find(candidates, kind, &Match::kind);
    return found != candidates.end() ? *found : kNoMatch;
  };
  const Match good = find(Match::kGood);
  if (good.kind != Match::kNo) return good;
  const Match more = find(Match::kMore);
  const Match bad = find(Match::kBadChecksum);
  return more.kind != Match::kNo && (!look.is_final || bad.kind == Match::kNo) ? more : bad;
}

Match MatchReady(const Look& look) {
  constexpr size_t kSize = 2;
  if (look.direction == Direction::kToDevice || look.rest[0] != MICOM_ACK >> 8) return kNoMatch;
  if (look.rest.size() < kSize) return More(false);
  if (look.rest[1] != (MICOM_ACK & 0xFF)) return kNoMatch;
  return {.kind = Match::kGood, .size = kSize};
}

constexpr std::array<LineProtocol, 8> kProtocols = {{
    {Protocol::kPelco, MatchHeadAnswer, HeadAnswerText, kSumDigits},
    {Protocol::kSd, MatchSd, SdText, kSumDigits},
    {Protocol::kPelco, MatchOwnPelco, PelcoText, kSumDigits},
    {Protocol::kHd, MatchHd, HdText, kSumDigits},
    {Protocol::kLens, MatchLens, LensText, kSumDigits},
    {Protocol::kFirmware, MatchPacket, FirmwarePacketText, kCrcDigits},
    {Protocol::kFirmware, MatchReady, FirmwareReadyText, kCrcDigits},
    {Protocol::kPelco, MatchOtherPelco, PelcoText, kSumDigits},
}};

}  // namespace

std::vector<LineProtocol> LineProtocols(Protocol protocol) {
  std::vector<LineProtocol> chosen;
  std::ranges::copy_if(kProtocols, std::back_inserter(chosen), [protocol](const LineProtocol& row) {
    return protocol == Protocol::kAuto || row.protocol == protocol ||
           // SD modules are driven with Pelco-D.
           (protocol == Protocol::kSd && row.match == MatchOwnPelco);
  });
  return chosen;
}

}  // namespace tools
