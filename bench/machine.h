// The machine that the figures are of.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace bench {

// Processors, kernel, compiler and load, as name and value.
std::vector<std::pair<std::string, std::string>> DescribeMachine();

}  // namespace bench
