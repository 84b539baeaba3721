// The tracking curves that the daemon has, and how far a table is from them. Numbers only, no I/O.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "lens/tracking_tables.h"

namespace tools {

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
