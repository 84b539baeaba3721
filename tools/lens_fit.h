// Fits a lens's tracking curve to the points that focus searches print. Numbers only, no I/O.
//
// Zoom, focus and residuals are motor steps throughout.
//
// What is fitted. The daemon follows a curve of straight pieces between entries at a constant
// zoom spacing, so the fit is such a curve: its unknowns are the focus at each entry, and a point
// between two entries counts for both by its distance to them. No other curve is fitted first and
// read off at the entries: that would flatten the bends of a table that is used with its corners.
//
// What points are like. A search looks at every tenth step, counted from where it starts: even a
// perfect one is up to 5 steps off, and starting again from the same place gives the same answer.
// With a noisy image it is a stop or two off. And some are plainly wrong: something moved in the
// picture, the image had no detail, the camera daemon did not answer. These lie anywhere, and one
// in ten of them would bend a least-squares curve by tens of steps.
//
// How. Points whose best position was an end of their search's interval are left out first: in
// most of them the peak lay beyond it, and where the table in use is far off they come in numbers,
// all to the same side. (Those that prove to lie on the curve of the others are taken back.) The
// rest is fitted so that wrong points have no say: robust_curve.h says how.
//
// A curve is no substitute for points: more than `max_gap` entries in a row without one are
// refused, and so is a table's end that lies off the points.
//
// Points that are equal in zoom and focus count together as the root of their number: a search
// repeated from where it ended looks at the same stops and says the same again.
#pragma once

#include <span>
#include <vector>

#include "lens/tracking_tables.h"
#include "tools/lens_trace.h"

namespace tools {

struct FitOptions {
  int spacing = TRACKING_SPACING;  // zoom steps between two entries
  int entries = 0;                 // 0: as many as the shortest known curve that holds all points
  int max_gap = 2;                 // entries in a row that may be without a point
};

enum class Fate {
  kKept,
  kOutlier,    // further off the curve than the cutoff
  kSearchEnd,  // best at an end of its search's interval
  kOffTable,   // its zoom is not on the table
};

struct JudgedPoint {
  TracePoint point;
  Fate fate;
  double residual;  // focus less the curve's; off the table: less that of the nearer end
};

struct FittedEntry {
  ZfEntry place;       // the focus rounded to whole steps, at least 0
  int points;          // kept ones that lie nearer to this entry than to another
  double uncertainty;  // standard error, steps
};

// Of the kept points.
struct Residuals {
  double median;
  double spread;  // 1.4826 times the median of |residual|: the standard deviation, were they normal
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
  // Entries that the curve has from their neighbours only.
  std::vector<int> Bridged() const;
};

// The most entries that a table may be asked to have.
constexpr int kFitEntriesMax = 512;

// Throws Failure, with what is missing, when there are too few points for a table.
LensFit FitLens(std::span<const TracePoint> points, const FitOptions& options);

}  // namespace tools
