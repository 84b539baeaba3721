// What is wrong with a command line, in one line.
#pragma once

#include <exception>
#include <string>

namespace CLI {
class App;
}

namespace tools {

// Words a failed parse of `app`: an unknown command or option comes with the nearest that there
// is.
std::string DescribeParseError(const CLI::App& app, const std::exception& error);

}  // namespace tools
