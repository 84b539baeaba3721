// Bytes and explained frames as they are printed.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "tools/frame_words.h"

namespace tools {

// "FF 01 0A".
std::string HexText(std::span<const uint8_t> bytes);

// The bytes as characters, a point for each that cannot be printed.
std::string PlainText(std::span<const uint8_t> bytes);

// Text as a JSON string, quotes included; a byte beyond ASCII counts as a character.
std::string JsonString(std::string_view text);

// `"bytes":"FF 01","text":".."`
std::string BytesJson(std::span<const uint8_t> bytes);

// The members of a frame's JSON object, without the braces.
std::string FrameJson(const ExplainedFrame& frame);

// A frame in columns: its bytes (the first of a long one), its protocol, its words.
std::string FrameText(const ExplainedFrame& frame);

}  // namespace tools
