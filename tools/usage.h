// What is wrong with a command line, in one line.
#pragma once

#include <CLI/CLI.hpp>
#include <exception>
#include <string>

namespace tools {

// Words a failed parse of `app`: an unknown command or option comes with the nearest that there
// is.
std::string DescribeParseError(const CLI::App& app, const std::exception& error);

// Takes a whole number from `low` to `high`, as ParseNumber does.
CLI::Validator NumberFrom(int low, int high);

}  // namespace tools
