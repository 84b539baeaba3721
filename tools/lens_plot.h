// Plots lens curves as SVG with gnuplot. Both axes are motor steps. Each function throws Failure if
// gnuplot is not installed or cannot write the file.
#pragma once

#include <string>

#include "tools/lens_fit.h"

namespace tools {

// Plots a fit with its points and the nearest known curve. A second diagram shows the residuals and
// the distance of the known curve from the fit.
void DrawFit(const LensFit& fit, const std::string& path);

// Plots the known curves.
void DrawKnownCurves(const std::string& path);

}  // namespace tools
