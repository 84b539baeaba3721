// Description of the machine under test.
#pragma once

#include <string>

namespace bench {

// Processors, kernel, compiler and date in one line.
std::string DescribeMachine();

// Number of processors kept busy by other programs, measured for one second.
double BusyProcessors();

}  // namespace bench
