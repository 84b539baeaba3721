// What a fit of a lens's curve came to, as text: the table for a lens profile, a report, JSON.
#pragma once

#include <string>

#include "tools/lens_fit.h"

namespace tools {

// The table as it stands in src/lens/tracking_tables.h, under the name ZFTABLE_`name`.
std::string TableText(const std::string& name, std::span<const ZfEntry> table);

// What was read, what was dropped, the residuals, the entries, and the known curves beside them.
std::string FitReport(const TraceLog& log, const LensFit& fit);

// The same as one JSON object.
std::string FitJson(const TraceLog& log, const LensFit& fit);

// What the reader of a table should know before using it, a line each; empty when all is well.
std::string FitWarnings(const TraceLog& log, const LensFit& fit);

// The known curves as columns of numbers.
std::string KnownCurvesText();

}  // namespace tools
