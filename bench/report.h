// Results as people read them: tables in Markdown, padded so that a terminal shows them as well;
// bar charts in SVG.
#pragma once

#include <string>

#include "bench/results.h"

namespace bench {

// A number as the tables show it: three significant digits, no exponent.
std::string Number(double value);

// The tables with everything around them.
std::string TableReport(const Results& results);

// Small multiples of the figures that matter most.
std::string SvgReport(const Results& results);

// `document` with what is between its two lines "bench: begin" and "bench: end" replaced by
// `report`. Throws std::runtime_error when they are not there.
std::string WithReport(const std::string& document, const std::string& report);

}  // namespace bench
