// Messages for errors on the command line, and the form of the help texts.
#pragma once

#include <CLI/CLI.hpp>
#include <exception>
#include <string>
#include <vector>

namespace tools {

// Returns a message for a failed parse of `app`. For an unknown command or option it suggests the
// nearest one.
std::string DescribeParseError(const CLI::App& app, const std::exception& error);

// "a, b, c".
std::string Joined(const std::vector<std::string>& names);

// Limits the help of this command, and of subcommands added later, to 80 columns.
void WrapHelp(CLI::App* app);

// Accepts a whole number from `low` to `high`, like ParseNumber. It is a transformation, because
// the parser would read "010" as 8: it passes the number on in decimal digits.
CLI::Validator NumberFrom(int low, int high);

// Accepts one of these words.
CLI::Validator OneOf(const std::vector<std::string>& names);

}  // namespace tools
