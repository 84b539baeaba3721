// Prints bytes and explained frames.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "tools/frame_words.h"
#include "tools/json.h"

namespace tools {

// Returns the bytes as characters, with a dot for each one that is not printable.
std::string PlainText(std::span<const uint8_t> bytes);

// Adds the members "bytes" and "text" (the bytes in both forms) to a JSON object.
void AddBytes(std::span<const uint8_t> bytes, json_object* object);

// Adds the members of a frame to a JSON object.
void AddFrame(const ExplainedFrame& frame, json_object* object);

// Returns a frame in columns: its bytes (only the first ones of a long frame), protocol and
// description.
std::string FrameText(const ExplainedFrame& frame);

}  // namespace tools
