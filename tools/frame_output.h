// Bytes and explained frames as they are printed.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "tools/frame_words.h"
#include "tools/json.h"

namespace tools {

// The bytes as characters, a point for each that cannot be printed.
std::string PlainText(std::span<const uint8_t> bytes);

// Adds "bytes" and "text", the bytes in both forms, to a JSON object.
void AddBytes(std::span<const uint8_t> bytes, json_object* object);

// Adds the members of a frame to a JSON object.
void AddFrame(const ExplainedFrame& frame, json_object* object);

// A frame in columns: its bytes (the first of a long one), its protocol, its words.
std::string FrameText(const ExplainedFrame& frame);

}  // namespace tools
