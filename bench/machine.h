// The machine that the figures are of.
#pragma once

#include <string>

namespace bench {

// Processors, kernel, compiler and date, in one line.
std::string DescribeMachine();

// How many processors others keep busy, watched for a second.
double BusyProcessors();

}  // namespace bench
