// Results as people read them: a table for the terminal, the same in Markdown, bar charts in SVG.
#pragma once

#include <string>

#include "bench/results.h"

namespace bench {

// A number as the tables show it: three significant digits, no exponent.
std::string Number(double value);

// The table with everything around it, aligned.
std::string TextReport(const Results& results);

// The same as Markdown.
std::string MarkdownReport(const Results& results);

// Small multiples of the figures that matter most.
std::string SvgReport(const Results& results);

// The lines between which a document's copy of the report stands.
constexpr char kReportBegin[] = "<!-- bench: begin, written by ./bench.sh --readme -->";
constexpr char kReportEnd[] = "<!-- bench: end -->";

// `document` with what is between the two lines replaced by `report`. Throws std::runtime_error
// when they are not there.
std::string WithReport(const std::string& document, const std::string& report);

}  // namespace bench
