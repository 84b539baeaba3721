#include "tools/known_curves.h"

#include <algorithm>
#include <cstdlib>

namespace tools {

double FocusAt(std::span<const ZfEntry> table, double zoom) {
  if (zoom <= table.front().zoom) return table.front().focus;
  if (zoom >= table.back().zoom) return table.back().focus;
  const auto upper =
      std::upper_bound(table.begin(), table.end(), zoom,
                       [](double z, const ZfEntry& entry) { return z < entry.zoom; });
  const ZfEntry& above = *upper;
  const ZfEntry& below = *(upper - 1);
  return below.focus +
         (zoom - below.zoom) * (above.focus - below.focus) / (above.zoom - below.zoom);
}

std::vector<CurveDeviation> CompareWithKnown(std::span<const ZfEntry> table) {
  std::vector<CurveDeviation> all;
  for (const KnownCurve& known : kKnownCurves) {
    CurveDeviation deviation = {
        .curve = known, .entries = 0, .mean = 0, .largest = 0, .largest_zoom = 0};
    for (const ZfEntry& entry : table) {
      if (entry.zoom > known.table.back().zoom) break;
      const double off = entry.focus - FocusAt(known.table, entry.zoom);
      ++deviation.entries;
      deviation.mean += std::abs(off);
      if (std::abs(off) <= std::abs(deviation.largest)) continue;
      deviation.largest = off;
      deviation.largest_zoom = entry.zoom;
    }
    deviation.mean /= deviation.entries;
    all.push_back(deviation);
  }
  std::stable_sort(all.begin(), all.end(), [](const CurveDeviation& a, const CurveDeviation& b) {
    return a.mean < b.mean;
  });
  return all;
}

}  // namespace tools
