// Reports of the results: Markdown tables, padded for terminals, and SVG bar charts.
#pragma once

#include <string>

#include "bench/results.h"

namespace bench {

// Formats a number for the tables: three significant digits, no exponent.
std::string Number(double value);

// The tables with the description of the machine, the contenders and the method.
std::string TableReport(const Results& results);

// Small multiples of the most important figures.
std::string SvgReport(const Results& results);

// Returns `document` with `report` between its lines "bench: begin" and "bench: end". Throws
// std::runtime_error if these lines are missing.
std::string WithReport(const std::string& document, const std::string& report);

}  // namespace bench
