// A curve of straight pieces through points of which some are wrong. Numbers only, no I/O.
//
// It is fitted by reweighted least squares, in two stages that differ only in a point's weight:
//   1. Least absolute deviations: weight 1/|residual|. However far off a point is, it pulls no
//      harder than one that is near, so wrong points cannot carry the curve away. The stiffness
//      keeps two wrong points of three at one entry from having their way there.
//   2. From there, bisquare weights: (1 - (residual/cutoff)^2)^2, and none at all beyond the
//      cutoff of 4.685 times the spread of the residuals. The spread is 1.4826 times the median
//      of |residual|, so that wrong points have no say in it either, and never less than the
//      search's own 10/sqrt(12) steps. Points without weight are the outliers that are reported.
// Starting stage 2 from all points alike would not do: the first curve would be one that the
// wrong points had bent, and good points might be thrown out for it.
//
// Both stages hold the curve by its stiffness: a penalty on the squared second difference of
// neighbouring entries, in units of how much the known curves bend. It has next to no say where
// an entry has points, and carries the curve over an entry that has none, with the slope that it
// has on both sides.
#pragma once

#include <cstddef>
#include <vector>

namespace tools {

struct Weighted {
  double value;
  double weight;
};

// The value below and above which lies half of the weight.
double Median(std::vector<Weighted> values);

// Their spread around 0: 1.4826 times the median of their sizes, which is the standard deviation,
// were they normal.
double SpreadOf(std::vector<Weighted> residuals);

// Equal points, as one.
struct Observation {
  size_t lower;  // the entry at or below it
  double share;  // 0 at that entry, 1 at the next
  double focus;
  double weight;  // root of how many they are
};

struct RobustCurve {
  std::vector<double> values;         // at each entry
  std::vector<double> uncertainties;  // standard errors of these
  double cutoff;                      // |residual| from which a point has no say
};

// Fits a curve of `entries` (at least 2) that are `spacing` zoom steps apart to at least one
// observation.
RobustCurve FitRobustCurve(std::vector<Observation> all, size_t entries, int spacing);

}  // namespace tools
