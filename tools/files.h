// Reads and writes whole files. Each function throws Failure (EXIT_STATUS_FAILED) with the path and
// the reason.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tools {

// Throws "cannot ACT PATH: REASON" with the reason in errno.
[[noreturn]] void FailOn(const char* act, const std::string& path);

// Returns the contents of a regular file; rejects any other kind of file.
std::vector<uint8_t> ReadFile(const std::string& path);

// Reads a file of any kind up to its end; "-" is standard input.
std::vector<uint8_t> ReadStream(const std::string& path);

// Overwrites the file, or creates it.
void WriteText(const std::string& path, const std::string& text);

// Creates or replaces a file by a rename: a reader sees either the old file or the new one,
// complete.
void PlaceFile(const std::string& path, std::span<const uint8_t> bytes);

// Creates a file that survives a loss of power once this returns. Fails if the file exists.
void CreateFile(const std::string& path, std::span<const uint8_t> bytes);

}  // namespace tools
