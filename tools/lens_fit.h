// Fits a lens's tracking curve to the points that focus searches print. Does no I/O.
//
// Zoom, focus and residuals are motor steps.
//
// Model. The daemon interpolates linearly between entries at a constant zoom spacing, so the fit is
// such a curve: its unknowns are the focus values at the entries. A point between two entries
// affects both, the nearer one more. Fitting a smooth curve first and sampling it
// would flatten the bends.
//
// Errors of the points. A search measures at every tenth step from its start, so even a perfect one
// is up to 5 steps off, and repeating it from the same start gives the same result. With image
// noise it may be one or two stops off. Some points are wrong altogether: something moved in the
// image, the image had no detail, or the camera daemon did not answer. These are anywhere, and one
// of them in ten points would bend a least-squares curve by tens of steps.
//
// Method. Points whose best position was at an end of the search interval are left out at first:
// for most of them the peak was outside the interval, and if the table in use is far off they are
// many, all on the same side. Those that turn out to lie on the curve are included again. The
// others are fitted with a method that ignores wrong points (see robust_curve.h).
//
// A curve cannot replace points: the fit is rejected if more than `max_gap` adjacent entries, or an
// end of the table, have no points.
//
// Points with equal zoom and focus together count as the square root of their number, because a
// search repeated from its end position measures at the same stops and gives the same result.
#pragma once

#include <span>
#include <vector>

#include "lens/tracking_tables.h"
#include "tools/lens_trace.h"

namespace tools {

struct FitOptions {
  int spacing = TRACKING_SPACING;  // zoom steps between two entries
  int entries = 0;                 // 0: as many as the shortest known curve that covers all points
  int max_gap = 2;                 // largest number of adjacent entries without a point
};

enum class Fate {
  kKept,
  kOutlier,    // farther from the curve than the cutoff
  kSearchEnd,  // best position at an end of the search interval
  kOffTable,   // zoom outside the table
};

struct JudgedPoint {
  TracePoint point;
  Fate fate;
  double residual;  // focus minus the curve's; outside the table: minus that of the nearer end
};

struct FittedEntry {
  ZfEntry place;       // the focus rounded to whole steps, at least 0
  int points;          // kept points nearest to this entry
  double uncertainty;  // standard error, steps
};

// Statistics of the kept points.
struct Residuals {
  double median;
  double spread;  // 1.4826 times the median of |residual|: see robust_curve.h
  double rms;
  double largest;  // of |residual|
};

struct LensFit {
  int spacing;
  std::vector<FittedEntry> entries;
  std::vector<JudgedPoint> points;  // in the order given
  Residuals residuals;
  double cutoff;  // |residual| from which a point is an outlier

  std::vector<ZfEntry> Table() const;
  int Count(Fate fate) const;
  // Returns the entries without points, which are determined by their neighbours.
  std::vector<int> Bridged() const;
};

// The largest number of entries of a table.
constexpr int kFitEntriesMax = 512;

// Throws Failure with the reason if there are too few points for a table.
LensFit FitLens(std::span<const TracePoint> points, const FitOptions& options);

}  // namespace tools
