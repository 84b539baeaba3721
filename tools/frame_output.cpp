#include "tools/frame_output.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tools {

namespace {

// Bytes of a frame that are shown: the longest but for firmware packets and noise.
constexpr size_t kBytesShown = 10;
constexpr char kGoesOn[] = " ...";
constexpr int kHexWidth = 3 * kBytesShown - 1 + sizeof(kGoesOn) - 1;
constexpr int kNameWidth = 11;

}  // namespace

std::string HexText(std::span<const uint8_t> bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

std::string PlainText(std::span<const uint8_t> bytes) {
  std::string text(bytes.begin(), bytes.end());
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
  return text;
}

std::string JsonString(std::string_view text) {
  std::string json = "\"";
  for (const char c : text) {
    if (c < ' ' || c > '~') {
      std::array<char, 8> escape;
      snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned char>(c));
      json += escape.data();
      continue;
    }
    if (c == '"' || c == '\\') json += '\\';
    json += c;
  }
  return json + '"';
}

std::string BytesJson(std::span<const uint8_t> bytes) {
  return "\"bytes\":" + JsonString(HexText(bytes)) + ",\"text\":" + JsonString(PlainText(bytes));
}

std::string FrameJson(const ExplainedFrame& frame) {
  return "\"offset\":" + std::to_string(frame.offset) + "," + BytesJson(frame.bytes) +
         ",\"protocol\":" + JsonString(ProtocolName(frame.protocol)) +
         ",\"verdict\":" + JsonString(VerdictName(frame.verdict)) +
         ",\"words\":" + JsonString(frame.words);
}

std::string FrameText(const ExplainedFrame& frame) {
  const bool is_long = frame.bytes.size() > kBytesShown;
  std::string hex =
      HexText(std::span(frame.bytes).first(std::min(frame.bytes.size(), kBytesShown)));
  if (is_long) hex += kGoesOn;
  const char* name = frame.protocol == Protocol::kNone ? "-" : ProtocolName(frame.protocol);
  std::array<char, 64> columns;
  snprintf(columns.data(), columns.size(), "%-*s  %-*s  ", kHexWidth, hex.c_str(), kNameWidth,
           name);
  return columns.data() + frame.words;
}

}  // namespace tools
