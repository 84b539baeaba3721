#include "tools/frame_output.h"

#include <algorithm>

#include "tools/format.h"
#include "tools/hex.h"

namespace tools {

namespace {

// Number of bytes shown: enough for every frame except firmware packets and noise.
constexpr size_t kBytesShown = 10;
constexpr char kGoesOn[] = " ...";
constexpr int kHexWidth = 3 * kBytesShown - 1 + sizeof(kGoesOn) - 1;
constexpr int kNameWidth = 11;

}  // namespace

std::string PlainText(std::span<const uint8_t> bytes) {
  std::string text(bytes.begin(), bytes.end());
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
  return text;
}

void AddBytes(std::span<const uint8_t> bytes, json_object* object) {
  json_object_object_add(object, "bytes", NewJsonText(Hex(bytes)));
  json_object_object_add(object, "text", NewJsonText(PlainText(bytes)));
}

void AddFrame(const ExplainedFrame& frame, json_object* object) {
  json_object_object_add(object, "offset", json_object_new_uint64(frame.offset));
  AddBytes(frame.bytes, object);
  json_object_object_add(object, "protocol", NewJsonText(ProtocolName(frame.protocol)));
  json_object_object_add(object, "verdict", NewJsonText(VerdictName(frame.verdict)));
  json_object_object_add(object, "words", NewJsonText(frame.words));
}

std::string FrameText(const ExplainedFrame& frame) {
  const bool is_long = frame.bytes.size() > kBytesShown;
  std::string hex = Hex(std::span(frame.bytes).first(std::min(frame.bytes.size(), kBytesShown)));
  if (is_long) hex += kGoesOn;
  const char* name = frame.protocol == Protocol::kNone ? "-" : ProtocolName(frame.protocol);
  return Format("%-*s  %-*s  ", kHexWidth, hex.c_str(), kNameWidth, name) + frame.words;
}

}  // namespace tools
