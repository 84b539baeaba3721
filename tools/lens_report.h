// The result of a fit as text: the table for a lens profile, a report, JSON.
#pragma once

#include <string>

#include "tools/lens_fit.h"

namespace tools {

// Returns the table in the form of src/lens/tracking_tables.h, with the name ZFTABLE_`name`.
std::string TableText(const std::string& name, std::span<const ZfEntry> table);

// Returns the numbers of points read and dropped, the residuals, the entries, and their distance
// from the known curves.
std::string FitReport(const TraceLog& log, const LensFit& fit);

// Returns the report as one JSON object.
std::string FitJson(const TraceLog& log, const LensFit& fit);

// Returns warnings for the user of the table, one per line; empty if there are none.
std::string FitWarnings(const TraceLog& log, const LensFit& fit);

// Returns the known curves as columns of numbers.
std::string KnownCurvesText();

}  // namespace tools
