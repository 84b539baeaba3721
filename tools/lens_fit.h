// Fits a lens's tracking curve to the points that focus searches print. Numbers only, no I/O.
//
// A finished search prints one line, "TRACE", its zoom, the focus that was sharpest, and by how
// much that differs from where it started. Zoom, focus and residuals are motor steps throughout.
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
// rest is fitted by reweighted least squares, in two stages that differ only in a point's weight:
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
// has on both sides. It is no substitute for points: more than `max_gap` entries in a row without
// one are refused, and so is a table's end that lies off the points.
//
// Points that are equal in zoom and focus count together as the root of their number: a search
// repeated from where it ended looks at the same stops and says the same again.
#pragma once

#include <array>
#include <span>
#include <string_view>
#include <vector>

#include "lens/tracking_tables.h"

namespace tools {

// One search. `line` counts from 1; `diff` is focus less where the search started.
struct TracePoint {
  int line;
  int zoom;
  int focus;
  int diff;
};

struct TraceLog {
  std::vector<TracePoint> points;  // in the log's order
  std::vector<int> malformed;      // lines that begin as a point does and do not go on as one
  int lines = 0;
};

// Takes the points out of what the daemon printed. Whatever stands before the word TRACE in a
// line (a log's time stamp) is skipped, tabs may have become blanks, all other lines are ignored.
TraceLog ReadTrace(std::string_view text);

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

// The focus of a curve at `zoom`: straight between entries, flat beyond both ends.
double FocusAt(std::span<const ZfEntry> table, double zoom);

// The curves that the daemon has.
struct KnownCurve {
  const char* name;
  std::span<const ZfEntry> table;
};
inline constexpr std::array<KnownCurve, 3> kKnownCurves = {
    {{"KESTREL", ZFTABLE_KESTREL}, {"HERON", ZFTABLE_HERON}, {"OSPREY", ZFTABLE_OSPREY}}};

// How far a table is from a known curve, over those of its entries that lie on the curve.
struct CurveDeviation {
  KnownCurve curve;
  int entries;
  double mean;       // of |deviation|
  double largest;    // the deviation of largest size: the table's focus less the curve's
  int largest_zoom;  // where
};

// One for each known curve, the nearest (least mean) first.
std::vector<CurveDeviation> CompareWithKnown(std::span<const ZfEntry> table);

}  // namespace tools
