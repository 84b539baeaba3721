// The tracking curves built into the daemon, and their distance from a table. Does no I/O.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "lens/tracking_tables.h"

namespace tools {

// Returns the focus of a curve at `zoom`: linear between entries, constant beyond both ends.
double FocusAt(std::span<const ZfEntry> table, double zoom);

// The curves built into the daemon.
struct KnownCurve {
  const char* name;
  std::span<const ZfEntry> table;
};
inline constexpr std::array<KnownCurve, 3> kKnownCurves = {
    {{"KESTREL", ZFTABLE_KESTREL}, {"HERON", ZFTABLE_HERON}, {"OSPREY", ZFTABLE_OSPREY}}};

// Distance of a table from a known curve, over the entries of the table that lie on the curve.
struct CurveDeviation {
  KnownCurve curve;
  int entries;
  double mean;       // of |deviation|
  double largest;    // the largest deviation: focus of the table minus that of the curve
  int largest_zoom;  // its zoom
};

// Returns one distance for each known curve, the smallest mean first.
std::vector<CurveDeviation> CompareWithKnown(std::span<const ZfEntry> table);

}  // namespace tools
