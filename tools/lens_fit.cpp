#include "tools/lens_fit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>

#include "tools/failure.h"
#include "tools/known_curves.h"
#include "tools/robust_curve.h"

namespace tools {
namespace {

// Half-widths of the daemon's searches: after a zoom stop, and on command.
constexpr std::array<int, 2> kSearchRanges = {100, 200};
constexpr size_t kPointsMin = 6;

int ChooseEntries(std::span<const TracePoint> points, int spacing) {
  int last = 0;
  for (const TracePoint& point : points)
    last = std::max(last, point.zoom);
  int end = 0;  // of the shortest known curve that holds it
  for (const KnownCurve& known : kKnownCurves) {
    const int known_end = known.table.back().zoom;
    if (known_end >= last && (end == 0 || known_end < end)) end = known_end;
  }
  if (end == 0) {
    throw Failure(EXIT_STATUS_FAILED,
                  "zoom " + std::to_string(last) +
                      " is beyond every known curve; set the number of --entries");
  }
  return (end + spacing - 1) / spacing + 1;
}

Fate FirstFate(const TracePoint& point, int zoom_end) {
  if (point.zoom < 0 || point.zoom > zoom_end) return Fate::kOffTable;
  const bool at_end = std::find(kSearchRanges.begin(), kSearchRanges.end(), std::abs(point.diff)) !=
                      kSearchRanges.end();
  return at_end ? Fate::kSearchEnd : Fate::kKept;
}

std::vector<Observation> Gather(std::span<const JudgedPoint> points, int spacing, size_t entries) {
  std::map<std::pair<int, int>, int> counts;
  for (const JudgedPoint& judged : points) {
    if (judged.fate == Fate::kKept) ++counts[{judged.point.zoom, judged.point.focus}];
  }
  std::vector<Observation> all;
  for (const auto& [place, count] : counts) {
    const auto [zoom, focus] = place;
    const size_t lower = std::min(static_cast<size_t>(zoom / spacing), entries - 2);
    all.push_back({.lower = lower,
                   .share = static_cast<double>(zoom) / spacing - static_cast<double>(lower),
                   .focus = static_cast<double>(focus),
                   .weight = std::sqrt(count)});
  }
  return all;
}

// Returns the number of kept points nearest to each entry.
std::vector<int> CountNearest(std::span<const JudgedPoint> points, int spacing, size_t entries) {
  std::vector<int> counts(entries);
  for (const JudgedPoint& judged : points) {
    if (judged.fate != Fate::kKept) continue;
    ++counts[static_cast<size_t>((judged.point.zoom + spacing / 2) / spacing)];
  }
  return counts;
}

std::string EntryRange(size_t first, size_t count, int spacing) {
  const std::string from = std::to_string(static_cast<int>(first) * spacing);
  if (count == 1) return "zoom " + from;
  return "zoom " + from + " to " + std::to_string(static_cast<int>(first + count - 1) * spacing);
}

// `missing` names what is missing.
void RequireCoverage(const std::vector<int>& counts, const FitOptions& options,
                     const char* missing) {
  for (size_t first = 0; first < counts.size();) {
    size_t end = first;
    while (end < counts.size() && counts[end] == 0)
      ++end;
    const size_t gap = end - first;
    const bool at_edge = first == 0 || end == counts.size();
    if (gap > static_cast<size_t>(options.max_gap) || (gap > 0 && at_edge)) {
      throw Failure(EXIT_STATUS_FAILED,
                    std::string("too few points: ") + missing + " at " +
                        EntryRange(first, gap, options.spacing) + " (" + std::to_string(gap) +
                        (gap == 1 ? " entry, " : " entries, ") +
                        (at_edge ? "an end of the table)"
                                 : "at most " + std::to_string(options.max_gap) + " allowed)"));
    }
    first = end + 1;
  }
}

void RequirePoints(std::span<const JudgedPoint> points) {
  const auto usable = static_cast<size_t>(std::count_if(
      points.begin(), points.end(), [](const JudgedPoint& p) { return p.fate == Fate::kKept; }));
  if (usable >= kPointsMin) return;
  throw Failure(EXIT_STATUS_FAILED, "too few points: " + std::to_string(usable) + " of " +
                                        std::to_string(points.size()) + " are usable, at least " +
                                        std::to_string(kPointsMin) + " are needed");
}

double CurveAt(const std::vector<double>& curve, int spacing, int zoom) {
  const double place =
      std::clamp(static_cast<double>(zoom) / spacing, 0.0, static_cast<double>(curve.size() - 1));
  const auto lower = std::min(static_cast<size_t>(place), curve.size() - 2);
  const double share = place - static_cast<double>(lower);
  return (1 - share) * curve[lower] + share * curve[lower + 1];
}

double ResidualOf(const TracePoint& point, const RobustCurve& curve, int spacing) {
  return point.focus - CurveAt(curve.values, spacing, point.zoom);
}

// Includes points at an end of their search that lie on the curve of the others. Returns true if
// there are any.
bool TakeBack(const RobustCurve& curve, LensFit* fit) {
  bool any = false;
  for (JudgedPoint& judged : fit->points) {
    if (judged.fate != Fate::kSearchEnd) continue;
    if (std::abs(ResidualOf(judged.point, curve, fit->spacing)) >= curve.cutoff) continue;
    judged.fate = Fate::kKept;
    any = true;
  }
  return any;
}

Residuals Summarize(std::span<const JudgedPoint> points) {
  std::vector<Weighted> kept;
  double squares = 0;
  double largest = 0;
  for (const JudgedPoint& judged : points) {
    if (judged.fate != Fate::kKept) continue;
    kept.push_back({.value = judged.residual, .weight = 1});
    squares += judged.residual * judged.residual;
    largest = std::max(largest, std::abs(judged.residual));
  }
  const double count = static_cast<double>(std::max<size_t>(kept.size(), 1));
  return {.median = Median(kept),
          .spread = SpreadOf(kept),
          .rms = std::sqrt(squares / count),
          .largest = largest};
}

}  // namespace

LensFit FitLens(std::span<const TracePoint> points, const FitOptions& options) {
  const int spacing = options.spacing;
  const auto entries =
      static_cast<size_t>(options.entries != 0 ? options.entries : ChooseEntries(points, spacing));
  const int zoom_end = static_cast<int>(entries - 1) * spacing;
  LensFit fit = {.spacing = spacing, .entries = {}, .points = {}, .residuals = {}, .cutoff = 0};
  for (const TracePoint& point : points)
    fit.points.push_back({.point = point, .fate = FirstFate(point, zoom_end), .residual = 0});
  RequirePoints(fit.points);
  RequireCoverage(CountNearest(fit.points, spacing, entries), options, "none");

  RobustCurve curve = FitRobustCurve(Gather(fit.points, spacing, entries), entries, spacing);
  if (TakeBack(curve, &fit)) {
    curve = FitRobustCurve(Gather(fit.points, spacing, entries), entries, spacing);
  }
  fit.cutoff = curve.cutoff;
  for (JudgedPoint& judged : fit.points) {
    judged.residual = ResidualOf(judged.point, curve, spacing);
    if (judged.fate == Fate::kKept && std::abs(judged.residual) >= fit.cutoff)
      judged.fate = Fate::kOutlier;
  }
  const std::vector<int> counts = CountNearest(fit.points, spacing, entries);
  RequireCoverage(counts, options, "no consistent points");
  fit.residuals = Summarize(fit.points);
  for (size_t i = 0; i < entries; ++i) {
    const auto focus = static_cast<int32_t>(std::lround(std::max(curve.values[i], 0.0)));
    fit.entries.push_back({.place = {static_cast<int32_t>(i) * spacing, focus},
                           .points = counts[i],
                           .uncertainty = curve.uncertainties[i]});
  }
  return fit;
}

std::vector<ZfEntry> LensFit::Table() const {
  std::vector<ZfEntry> table;
  for (const FittedEntry& entry : entries)
    table.push_back(entry.place);
  return table;
}

int LensFit::Count(Fate fate) const {
  return static_cast<int>(std::count_if(points.begin(), points.end(),
                                        [fate](const JudgedPoint& p) { return p.fate == fate; }));
}

std::vector<int> LensFit::Bridged() const {
  std::vector<int> zooms;
  for (const FittedEntry& entry : entries) {
    if (entry.points == 0) zooms.push_back(entry.place.zoom);
  }
  return zooms;
}

}  // namespace tools
