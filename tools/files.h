// Files read and written whole. Each function throws Failure (EXIT_STATUS_FAILED) with the path
// and the reason.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tools {

// Everything that a regular file holds. Anything else of that name is refused.
std::vector<uint8_t> ReadFile(const std::string& path);

// Everything up to the end of a file of any kind; "-" is standard input.
std::vector<uint8_t> ReadStream(const std::string& path);

// Writes over what is there.
void WriteText(const std::string& path, const std::string& text);

// Puts a file of these bytes at `path`, over one that may be there: a reader sees the old file
// or the new one, never a part.
void PlaceFile(const std::string& path, std::span<const uint8_t> bytes);

// Makes a new file, which outlives a loss of power once this returns; one that is there already is
// left alone, and a failure.
void CreateFile(const std::string& path, std::span<const uint8_t> bytes);

}  // namespace tools
