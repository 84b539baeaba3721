// Pictures of lens curves, as SVG text. Both axes are motor steps.
#pragma once

#include <string>

#include "tools/lens_fit.h"

namespace tools {

// A fit over its points, with the nearest known curve; below it the residuals, and how far the
// known curve lies from the fit.
std::string FitPicture(const LensFit& fit);

// The known curves.
std::string KnownCurvesPicture();

}  // namespace tools
