#include "sim/hd_micom.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

#include "module/hd_frame.h"
#include "tools/format.h"

namespace sim {
namespace {

uint8_t SumOf(std::span<const uint8_t> bytes) {
  return static_cast<uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0U) & 0xFF);
}

bool IsFrame(std::span<const uint8_t> bytes) {
  return bytes[HD_SYNC_AT] == HD_SYNC &&
         SumOf(bytes.first(HD_CHECKSUM_AT)) == bytes[HD_CHECKSUM_AT];
}

struct QueryRow {
  uint8_t command;
  uint8_t HdIdentity::*value;
  const char* words;
};

constexpr std::array<QueryRow, 3> kQueries = {{
    {HD_VERSION, &HdIdentity::version, "version query"},
    {HD_RESOLUTION_FLAG, &HdIdentity::resolution_flag, "resolution query"},
    {HD_SENSOR, &HdIdentity::sensor, "sensor query"},
}};

struct KeyRow {
  uint8_t data;
  MenuKey key;
  const char* words;
};

constexpr std::array<KeyRow, 5> kKeys = {{
    {HD_KEY_MENU, MenuKey::kMenu, "menu key"},
    {HD_KEY_UP, MenuKey::kUp, "up key"},
    {HD_KEY_DOWN, MenuKey::kDown, "down key"},
    {HD_KEY_LEFT, MenuKey::kLeft, "left key"},
    {HD_KEY_RIGHT, MenuKey::kRight, "right key"},
}};

// The motors that a lens setting starts or stops.
struct LensRow {
  uint8_t data;
  int zoom;
  int focus;
  bool is_search;
  const char* words;
};

constexpr std::array<LensRow, 6> kLens = {{
    {HD_LENS_STOP, 0, 0, false, "stop"},
    {HD_LENS_TELE, 1, 0, false, "zoom tele"},
    {HD_LENS_WIDE, -1, 0, false, "zoom wide"},
    {HD_LENS_FOCUS_SEARCH, 0, 0, true, "focus search"},
    {HD_LENS_FOCUS_MINUS, 0, -1, false, "focus minus"},
    {HD_LENS_FOCUS_PLUS, 0, 1, false, "focus plus"},
}};

std::string Unknown(uint8_t command, uint8_t data) {
  const std::array<uint8_t, 2> bytes = {command, data};
  return "unknown command and data " + Hex(bytes);
}

}  // namespace

HdMicom::HdMicom(const HdIdentity& identity, LoaderSetup loader,
                 std::function<termios()> line_settings, Clock::time_point now)
    : identity_(identity),
      loader_setup_(std::move(loader)),
      line_settings_(std::move(line_settings)),
      now_(now),
      last_byte_(now),
      lens_(now) {}

void HdMicom::Feed(std::span<const uint8_t> bytes, Clock::time_point now) {
  now_ = now;
  last_byte_ = now;
  lens_.Advance(now);
  if (loader_.has_value()) {
    loader_->Feed(bytes, now);
    return;
  }
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  Scan(false);
}

void HdMicom::Tick(Clock::time_point now) {
  now_ = now;
  lens_.Advance(now);
  if (loader_.has_value()) {
    loader_->Tick(now);
    return;
  }
  if (now - last_byte_ >= kQuietAfter) Scan(true);
  while (!answers_.empty() && now >= answers_.front().due) {
    const Bytes answer = std::move(answers_.front().bytes);
    answers_.erase(answers_.begin());
    on_answer(answer);
  }
}

std::string HdMicom::Describe() const {
  if (loader_.has_value()) return loader_->Describe();
  return tools::Format("zoom %.1fx, focus %.0f %%, ", lens_.ZoomAt(), lens_.FocusAt()) +
         menu_.Describe();
}

// Splits the pending bytes into frames and reports all other bytes as noise. On a quiet line
// (`is_final`), a partial frame is noise, too.
void HdMicom::Scan(bool is_final) {
  Bytes noise;
  const auto hand_noise_out = [&] {
    if (!noise.empty()) on_noise(noise);
    noise.clear();
  };
  while (!pending_.empty() && !loader_.has_value()) {
    const bool is_whole = pending_.size() >= HD_FRAME_SIZE;
    if (pending_[0] == HD_SYNC && !is_whole && !is_final) break;
    if (is_whole && IsFrame(std::span(pending_).first<HD_FRAME_SIZE>())) {
      hand_noise_out();
      const Bytes frame(pending_.begin(), pending_.begin() + HD_FRAME_SIZE);
      pending_.erase(pending_.begin(), pending_.begin() + HD_FRAME_SIZE);
      TakeFrame(frame);
    } else {
      noise.push_back(pending_[0]);
      pending_.erase(pending_.begin());
    }
  }
  hand_noise_out();
}

void HdMicom::TakeFrame(std::span<const uint8_t> frame) {
  on_frame(frame);
  const uint8_t command = frame[HD_COMMAND_AT];
  if (frame[HD_ACCESS_AT] == HD_QUERY) {
    TakeQuery(command);
  } else {
    TakeSetting(command, frame[HD_DATA_AT]);
  }
}

void HdMicom::TakeQuery(uint8_t command) {
  for (const QueryRow& row : kQueries) {
    if (row.command != command) continue;
    on_words(row.words);
    Bytes answer(HD_FRAME_SIZE);
    answer[HD_SYNC_AT] = HD_SYNC;
    answer[HD_COMMAND_AT] = command;
    answer[HD_ACCESS_AT] = HD_QUERY;
    answer[HD_DATA_AT] = identity_.*row.value;
    answer[HD_CHECKSUM_AT] = SumOf(std::span(answer).first(HD_CHECKSUM_AT));
    answers_.push_back({.due = now_ + kHdAnswerTime, .bytes = std::move(answer)});
    return;
  }
  on_words(Unknown(command, HD_NO_DATA));
}

void HdMicom::TakeSetting(uint8_t command, uint8_t data) {
  if (command == HD_FIRMWARE_UPDATE) {
    EnterLoader();
  } else if (command == HD_LENS) {
    TakeLens(data);
  } else if (command == HD_PARAMETER) {
    on_words("setting " + std::to_string(data));
  } else if (const auto* row = std::ranges::find(kKeys, data, &KeyRow::data);
             command == HD_MENU_KEY && row != kKeys.end()) {
    menu_.Press(row->key);
    on_words(row->words);
  } else {
    on_words(Unknown(command, data));
  }
}

void HdMicom::TakeLens(uint8_t data) {
  const auto* row = std::ranges::find(kLens, data, &LensRow::data);
  if (row == kLens.end()) {
    on_words(Unknown(HD_LENS, data));
    return;
  }
  lens_.Zoom(row->zoom);
  lens_.Focus(row->focus);
  if (row->is_search) lens_.Search();
  on_words(row->words);
}

void HdMicom::EnterLoader() {
  on_words("enters the firmware loader");
  answers_.clear();
  loader_.emplace(std::move(loader_setup_), line_settings_, now_);
  loader_->on_words = [this](const std::string& words) { on_words(words); };
  loader_->on_noise = [this](std::span<const uint8_t> bytes) { on_noise(bytes); };
  loader_->on_answer = [this](std::span<const uint8_t> bytes) { on_answer(bytes); };
}

}  // namespace sim
