// Pictures of lens curves, drawn by gnuplot as SVG. Both axes are motor steps. Each function throws
// Failure when there is no gnuplot or it cannot write the picture.
#pragma once

#include <string>

#include "tools/lens_fit.h"

namespace tools {

// A fit over its points, with the nearest known curve; below it the residuals, and how far the
// known curve lies from the fit.
void DrawFit(const LensFit& fit, const std::string& path);

// The known curves.
void DrawKnownCurves(const std::string& path);

}  // namespace tools
