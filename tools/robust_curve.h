// Fits a piecewise linear curve to points of which some are wrong. Does no I/O.
//
// Reweighted least squares in two stages, which differ only in the weights of the points:
//   1. Least absolute deviations: weight 1/|residual|. A distant point has no more influence than a
//      near one, so wrong points cannot pull the curve away. The stiffness prevents two wrong
//      points of three at one entry from determining it.
//   2. From there, bisquare weights: (1 - (residual/cutoff)^2)^2, and 0 beyond the cutoff of 4.685
//      times the spread of the residuals. The spread is 1.4826 times the median of |residual|,
//      which wrong points do not affect, and at least the resolution of a search, 10/sqrt(12)
//      steps. Points with weight 0 are reported as outliers.
// Stage 2 alone would not do: if it started with equal weights, wrong points would bend the first
// curve, and good points might be rejected because of it.
//
// Both stages add a stiffness: a penalty on the squared second difference of neighbouring entries,
// relative to the bends of the known curves. It hardly matters at an entry with points, and it
// interpolates an entry without points with the slope on both sides.
#pragma once

#include <cstddef>
#include <vector>

namespace tools {

struct Weighted {
  double value;
  double weight;
};

// Returns the weighted median.
double Median(std::vector<Weighted> values);

// Returns the spread around 0: 1.4826 times the median of the absolute values. This equals the
// standard deviation of a normal distribution.
double SpreadOf(std::vector<Weighted> residuals);

// Equal points, combined into one.
struct Observation {
  size_t lower;  // index of the entry at or below it
  double share;  // 0 at that entry, 1 at the next
  double focus;
  double weight;  // square root of their number
};

struct RobustCurve {
  std::vector<double> values;         // at each entry
  std::vector<double> uncertainties;  // their standard errors
  double cutoff;                      // |residual| above which a point has weight 0
};

// Fits a curve of `entries` (at least 2) values, `spacing` zoom steps apart, to at least one
// observation.
RobustCurve FitRobustCurve(std::vector<Observation> all, size_t entries, int spacing);

}  // namespace tools
