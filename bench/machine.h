// The machine that the figures are of.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace bench {

// Processors, kernel, compiler and date, as name and value.
std::vector<std::pair<std::string, std::string>> DescribeMachine();

// How many processors others keep busy, watched for a second.
double BusyProcessors();

}  // namespace bench
