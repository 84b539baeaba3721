#include "tools/lens_report.h"

#include <algorithm>
#include <array>

#include "tools/format.h"
#include "tools/json.h"
#include "tools/known_curves.h"

namespace tools {
namespace {

constexpr size_t kPairsOfALine = 6;
// An entry with a larger uncertainty deserves another search: half the step of a search.
constexpr double kUncertaintyMax = 5;
// A larger share of dropped points suggests a fault.
constexpr double kDroppedShareMax = 0.25;

const char* Reason(Fate fate) {
  constexpr const char* kReasons[] = {"kept", "outlier", "at an end of its search",
                                      "outside the table"};
  return kReasons[static_cast<size_t>(fate)];
}

std::string Join(std::span<const int> numbers, size_t most = 20) {
  std::string text;
  for (size_t i = 0; i < std::min(numbers.size(), most); ++i)
    text += (i == 0 ? "" : ", ") + std::to_string(numbers[i]);
  return numbers.size() > most ? text + ", ..." : text;
}

int CountDropped(const LensFit& fit) {
  return static_cast<int>(fit.points.size()) - fit.Count(Fate::kKept);
}

constexpr auto NewCount = json_object_new_int64;

// A value in steps, rounded to two decimals.
json_object* NewMeasure(double steps) {
  return json_object_new_double_s(steps, Format("%.2f", steps).c_str());
}

std::string DroppedText(const LensFit& fit) {
  std::string text = "dropped, steps\n    line   zoom  focus  residual\n";
  for (const auto& [point, fate, residual] : fit.points) {
    if (fate == Fate::kKept) continue;
    text += Format("  %6d %6d %6d %+9.1f  %s\n", point.line, point.zoom, point.focus, residual,
                   Reason(fate));
  }
  return text + "\n";
}

std::string EntriesText(const LensFit& fit) {
  std::string text = "entries, steps\n    zoom  focus  uncertainty  points\n";
  for (const auto& [place, points, uncertainty] : fit.entries) {
    text += Format("  %6d %6d %12.1f %7d%s\n", place.zoom, place.focus, uncertainty, points,
                   points == 0 ? "  interpolated" : "");
  }
  return text + "\n";
}

std::string ComparisonText(const LensFit& fit) {
  std::string text = "distance from the known curves, steps\n           entries   mean  largest\n";
  const auto deviations = CompareWithKnown(fit.Table());
  for (const CurveDeviation& deviation : deviations) {
    text += Format("  %-8s %7d %6.1f %+8.0f at zoom %d%s\n", deviation.curve.name,
                   deviation.entries, deviation.mean, deviation.largest, deviation.largest_zoom,
                   &deviation == deviations.data() ? ", nearest" : "");
  }
  return text;
}

}  // namespace

std::string TableText(const std::string& name, std::span<const ZfEntry> table) {
  std::vector<std::string> pairs;
  std::transform(table.begin(), table.end(), std::back_inserter(pairs),
                 [](const ZfEntry& entry) { return Format("{%d, %d},", entry.zoom, entry.focus); });
  std::array<size_t, kPairsOfALine> widths = {};
  for (size_t i = 0; i < pairs.size(); ++i) {
    size_t& width = widths[i % kPairsOfALine];
    width = std::max(width, pairs[i].size());
  }
  std::string text = Format("inline constexpr std::array<ZfEntry, %zu> ZFTABLE_%s = {{\n",
                            table.size(), name.c_str());
  for (size_t i = 0; i < pairs.size(); ++i) {
    const size_t column = i % kPairsOfALine;
    const bool ends_line = column + 1 == kPairsOfALine || i + 1 == pairs.size();
    text += (column == 0 ? "    " : "") + pairs[i];
    text += ends_line ? "\n" : std::string(widths[column] + 1 - pairs[i].size(), ' ');
  }
  return text + "}};\n";
}

std::string FitReport(const TraceLog& log, const LensFit& fit) {
  std::string text = Format("%zu trace points in %d lines: %d kept, %d dropped; %zu malformed\n\n",
                            log.points.size(), log.lines, fit.Count(Fate::kKept), CountDropped(fit),
                            log.malformed.size());
  if (CountDropped(fit) > 0) text += DroppedText(fit);
  text += Format(
      "residuals of the kept points, steps\n"
      "  median %+.1f, spread %.1f, rms %.1f, largest %.1f; outliers from %.1f\n\n",
      fit.residuals.median, fit.residuals.spread, fit.residuals.rms, fit.residuals.largest,
      fit.cutoff);
  return text + EntriesText(fit) + ComparisonText(fit);
}

std::string FitJson(const TraceLog& log, const LensFit& fit) {
  json_object* malformed = json_object_new_array();
  for (const int line : log.malformed)
    json_object_array_add(malformed, json_object_new_int(line));
  json_object* dropped = json_object_new_array();
  for (const auto& [point, fate, residual] : fit.points) {
    if (fate == Fate::kKept) continue;
    json_object_array_add(dropped, NewJsonObject({{"line", NewCount(point.line)},
                                                  {"zoom", NewCount(point.zoom)},
                                                  {"focus", NewCount(point.focus)},
                                                  {"residual", NewMeasure(residual)},
                                                  {"reason", NewJsonText(Reason(fate))}}));
  }
  json_object* entries = json_object_new_array();
  for (const auto& [place, points, uncertainty] : fit.entries) {
    json_object_array_add(entries, NewJsonObject({{"zoom", NewCount(place.zoom)},
                                                  {"focus", NewCount(place.focus)},
                                                  {"points", NewCount(points)},
                                                  {"uncertainty", NewMeasure(uncertainty)}}));
  }
  json_object* curves = json_object_new_array();
  for (const CurveDeviation& deviation : CompareWithKnown(fit.Table())) {
    json_object_array_add(curves,
                          NewJsonObject({{"name", NewJsonText(deviation.curve.name)},
                                         {"entries", NewCount(deviation.entries)},
                                         {"mean", NewMeasure(deviation.mean)},
                                         {"largest", NewMeasure(deviation.largest)},
                                         {"largest_zoom", NewCount(deviation.largest_zoom)}}));
  }
  const Json report = OwnJson(
      NewJsonObject({{"lines", NewCount(log.lines)},
                     {"malformed", malformed},
                     {"points", NewCount(static_cast<int64_t>(log.points.size()))},
                     {"kept", NewCount(fit.Count(Fate::kKept))},
                     {"dropped", dropped},
                     {"residuals", NewJsonObject({{"median", NewMeasure(fit.residuals.median)},
                                                  {"spread", NewMeasure(fit.residuals.spread)},
                                                  {"rms", NewMeasure(fit.residuals.rms)},
                                                  {"largest", NewMeasure(fit.residuals.largest)},
                                                  {"cutoff", NewMeasure(fit.cutoff)}})},
                     {"spacing", NewCount(fit.spacing)},
                     {"entries", entries},
                     {"known_curves", curves}}));
  return JsonText(report);
}

std::string FitWarnings(const TraceLog& log, const LensFit& fit) {
  std::string text;
  if (!log.malformed.empty()) {
    text += "malformed trace points in lines " + Join(log.malformed) + "\n";
  }
  if (!fit.Bridged().empty()) {
    text += "no point at zoom " + Join(fit.Bridged()) + "; interpolated\n";
  }
  std::vector<int> uncertain;
  for (const auto& [place, points, uncertainty] : fit.entries) {
    if (points > 0 && uncertainty > kUncertaintyMax) uncertain.push_back(place.zoom);
  }
  if (!uncertain.empty()) {
    text += Format("uncertainty above %.0f steps at zoom ", kUncertaintyMax) + Join(uncertain) +
            "; repeat the searches there\n";
  }
  if (CountDropped(fit) > kDroppedShareMax * static_cast<double>(fit.points.size())) {
    text += Format("%d of %zu points dropped; find the cause before you use the table\n",
                   CountDropped(fit), fit.points.size());
  }
  return text;
}

std::string KnownCurvesText() {
  std::string text = "  zoom";
  size_t longest = 0;
  for (const KnownCurve& known : kKnownCurves) {
    text += Format(" %8s", known.name);
    longest = std::max(longest, known.table.size());
  }
  text += "\n";
  for (size_t i = 0; i < longest; ++i) {
    text += Format("%6d", static_cast<int>(i) * TRACKING_SPACING);
    for (const KnownCurve& known : kKnownCurves)
      text += i < known.table.size() ? Format(" %8d", known.table[i].focus) : Format(" %8s", "-");
    text += "\n";
  }
  return text;
}

}  // namespace tools
