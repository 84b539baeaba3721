// What is wrong with a command line, in one line.
#pragma once

#include <CLI/CLI.hpp>
#include <exception>
#include <string>
#include <vector>

namespace tools {

// Words a failed parse of `app`: an unknown command or option comes with the nearest that there
// is.
std::string DescribeParseError(const CLI::App& app, const std::exception& error);

// "a, b, c".
std::string Joined(const std::vector<std::string>& names);

// Help of this command, and of those that are added to it later, fits a terminal of 80 columns.
void WrapHelp(CLI::App* app);

// Takes a whole number from `low` to `high`, as ParseNumber does. As a transformation, which an
// option that is no text needs, it hands the number on in digits that mean it to the parser too:
// that takes "010" for 8.
CLI::Validator NumberFrom(int low, int high);

// Takes one of these words.
CLI::Validator OneOf(const std::vector<std::string>& names);

}  // namespace tools
