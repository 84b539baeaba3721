#include "sim/micom_loader.h"

#include <utility>

#include "module/micom_firmware.h"
#include "util/bytes.h"

namespace sim {
namespace {

constexpr size_t kCrcSize = 2;

// The checksum of a packet, computed bit by bit as on a small micom.
uint16_t SlowCrc(std::span<const uint8_t> bytes) {
  constexpr unsigned kPolynomial = 0x8408;
  unsigned crc = 0;
  for (unsigned byte : bytes) {
    for (int bit = 0; bit < 8; ++bit, byte >>= 1) {
      const bool out = ((crc ^ byte) & 1) != 0;
      crc = out ? crc >> 1 ^ kPolynomial : crc >> 1;
    }
  }
  return static_cast<uint16_t>(crc);
}

// Checks the end mark and checksum of a packet of plausible length.
bool IsSound(std::span<const uint8_t> packet) {
  const size_t covered = packet.size() - kCrcSize;
  return packet[covered - 1] == MICOM_END &&
         SlowCrc(packet.first(covered)) == LoadLe16(packet.data() + covered);
}

}  // namespace

MicomLoader::MicomLoader(LoaderSetup setup, std::function<termios()> line_settings,
                         Clock::time_point now)
    : setup_(std::move(setup)),
      line_settings_(std::move(line_settings)),
      listens_from_(now + setup_.start_time),
      last_byte_(now) {}

void MicomLoader::Feed(std::span<const uint8_t> bytes, Clock::time_point now) {
  last_byte_ = now;
  const bool is_deaf = stage_ == Stage::kStarting || stage_ == Stage::kDone || answer_.has_value();
  if (is_deaf || !IsLineRight()) {
    on_noise(bytes);
    return;
  }
  packet_.insert(packet_.end(), bytes.begin(), bytes.end());
  if (IsPacketWhole()) TakePacket(now);
}

void MicomLoader::Tick(Clock::time_point now) {
  if (stage_ == Stage::kStarting) ShowSign(now);
  if (answer_.has_value() && now >= answer_->due) {
    const uint8_t byte = answer_->byte;
    answer_.reset();
    on_answer({&byte, 1});
  }
  // The bytes form no packet of this stage.
  if (!packet_.empty() && now - last_byte_ >= kLoaderQuiet) {
    on_noise(packet_);
    packet_.clear();
    AnswerAfter(milliseconds(0), kLoaderRefuses, now);
  }
}

std::string MicomLoader::Describe() const {
  const std::string stored = std::to_string(firmware_.size());
  switch (stage_) {
    case Stage::kStarting:
      return "loader waiting for the line";
    case Stage::kHeader:
      return "loader waiting for a header";
    case Stage::kDone:
      return "loader has new firmware, " + stored + " bytes";
    case Stage::kData:
    case Stage::kTail:
      break;
  }
  return "loader has " + stored + " of " + std::to_string(announced_) + " bytes";
}

bool MicomLoader::IsLineRight() const {
  const termios line = line_settings_();
  constexpr tcflag_t kFrameMask = CSIZE | PARENB | CSTOPB;
  return cfgetospeed(&line) == B115200 && (line.c_cflag & kFrameMask) == CS8;
}

void MicomLoader::ShowSign(Clock::time_point now) {
  if (now < listens_from_ || !IsLineRight()) {
    line_right_since_.reset();
    return;
  }
  if (!line_right_since_.has_value()) line_right_since_ = now;
  if (now - *line_right_since_ < setup_.sign_delay) return;
  stage_ = Stage::kHeader;
  on_words("loader: line at 115200, ready");
  if (!setup_.before_sign.empty()) on_answer(setup_.before_sign);
  if (!setup_.sign.empty()) on_answer(setup_.sign);
}

// True if the bytes so far have the length of a packet of this stage. Tick rejects all others after
// a pause.
bool MicomLoader::IsPacketWhole() const {
  if (packet_[0] != MICOM_START) return false;
  if (stage_ == Stage::kHeader) return packet_.size() == MICOM_HEADER_SIZE;
  if (stage_ == Stage::kTail) return packet_.size() == MICOM_TAIL_SIZE;
  if (packet_.size() < MICOM_DATA_BYTES_AT) return false;
  const size_t count = LoadLe16(&packet_[MICOM_DATA_COUNT_AT]);
  return count >= 1 && count <= MICOM_DATA_MAX && packet_.size() == count + MICOM_DATA_OVERHEAD;
}

void MicomLoader::TakePacket(Clock::time_point now) {
  const std::optional<LoaderTrouble> trouble = TakeTrouble();
  const auto is = [&](LoaderFault fault) { return trouble.has_value() && trouble->fault == fault; };
  constexpr uint8_t kTurned = 0x01;
  if (is(LoaderFault::kDamagedPacket)) packet_[packet_.size() / 2] ^= kTurned;
  const bool is_struck = is(LoaderFault::kSilent) || is(LoaderFault::kRefuse);
  const bool is_taken = !is_struck && Store();
  packet_.clear();
  if (is(LoaderFault::kSilent)) return;
  uint8_t answer = is_taken ? kLoaderAccepts : kLoaderRefuses;
  if (is(LoaderFault::kRefuse)) answer = trouble->answer;
  if (is(LoaderFault::kDamagedAnswer)) answer ^= kTurned;
  AnswerAfter(is(LoaderFault::kLate) ? trouble->delay : setup_.flash_time, answer, now);
}

bool MicomLoader::Store() {
  if (!IsSound(packet_)) return false;
  const bool is_stored = stage_ == Stage::kHeader ? StoreHeader()
                         : stage_ == Stage::kData ? StoreData()
                                                  : CheckTail();
  if (is_stored) ++accepted_;
  return is_stored;
}

bool MicomLoader::StoreHeader() {
  const size_t length = LoadLe32(&packet_[MICOM_HEADER_LENGTH_AT]);
  if (length > kFlashSize) return false;
  announced_ = length;
  stage_ = length == 0 ? Stage::kTail : Stage::kData;
  on_words("loader: " + std::to_string(length) + " bytes announced");
  return true;
}

bool MicomLoader::StoreData() {
  const size_t count = packet_.size() - MICOM_DATA_OVERHEAD;
  if (firmware_.size() + count > announced_) return false;
  const auto begin = packet_.begin() + MICOM_DATA_BYTES_AT;
  firmware_.insert(firmware_.end(), begin, begin + static_cast<std::ptrdiff_t>(count));
  if (firmware_.size() == announced_) stage_ = Stage::kTail;
  return true;
}

bool MicomLoader::CheckTail() {
  if (packet_[MICOM_TAIL_MARK_AT] != MICOM_TAIL ||
      LoadLe16(&packet_[MICOM_TAIL_PAYLOAD_CRC_AT]) != SlowCrc(firmware_)) {
    return false;
  }
  stage_ = Stage::kDone;
  on_words("loader: all bytes received, checksum correct");
  return true;
}

// The fault of the current packet, if any.
std::optional<LoaderTrouble> MicomLoader::TakeTrouble() {
  for (LoaderTrouble& trouble : setup_.troubles) {
    if (trouble.packet != accepted_ || trouble.times == 0) continue;
    --trouble.times;
    return trouble;
  }
  return std::nullopt;
}

void MicomLoader::AnswerAfter(milliseconds delay, uint8_t byte, Clock::time_point now) {
  if (delay > milliseconds(0)) {
    answer_ = {.due = now + delay, .byte = byte};
  } else {
    on_answer({&byte, 1});
  }
}

}  // namespace sim
