#include "tools/lens_plot.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/format.h"
#include "tools/known_curves.h"
#include "tools/svg.h"

namespace tools {
namespace {

constexpr double kWidth = 960;
constexpr double kFontSize = 13;
constexpr double kLeft = 76;
constexpr double kRight = 930;

constexpr const char* kInk = "#222222";
constexpr const char* kGrid = "#e4e4e4";
constexpr const char* kFitColor = "#1f5fa8";
constexpr const char* kKnownColor = "#7a7a7a";
constexpr const char* kDroppedColor = "#c4301b";

// Numbers onto pixels.
struct Axis {
  double low;
  double high;
  double from;  // pixel of `low`
  double to;
  double tick;

  double At(double value) const { return from + (value - low) / (high - low) * (to - from); }
  std::vector<double> Ticks() const {
    std::vector<double> ticks;
    const long count = std::lround((high - low) / tick);
    for (long i = 0; i <= count; ++i)
      ticks.push_back(low + static_cast<double>(i) * tick);
    return ticks;
  }

  double Clamped(double value) const { return At(std::clamp(value, low, high)); }
};

// The round number (1, 2 or 5 times a power of ten) that cuts `range` into about `pieces`.
double RoundStep(double range, int pieces) {
  const double rough = range / pieces;
  const double power = std::pow(10, std::floor(std::log10(rough)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (rough <= factor * power) return factor * power;
  }
  return 10 * power;
}

// An axis whose ends are ticks.
Axis RoundAxis(double low, double high, int pieces, double from, double to) {
  const double tick = RoundStep(high - low, pieces);
  return {.low = std::floor(low / tick) * tick,
          .high = std::ceil(high / tick) * tick,
          .from = from,
          .to = to,
          .tick = tick};
}

struct Panel {
  Axis x;
  Axis y;
};

void DrawGrid(const Panel& panel, bool with_x_numbers, const char* y_name, Svg* svg) {
  const auto& [x, y] = panel;
  for (const double value : x.Ticks()) {
    svg->Line(x.At(value), y.from, x.At(value), y.to, kGrid);
    if (with_x_numbers) svg->Text(x.At(value), y.from + 18, "middle", Format("%.0f", value + 0.0));
  }
  for (const double value : y.Ticks()) {
    svg->Line(x.from, y.At(value), x.to, y.At(value), kGrid);
    svg->Text(x.from - 8, y.At(value) + 4.5, "end", Format("%.0f", value + 0.0));
  }
  svg->Line(x.from, y.from, x.to, y.from, kInk);
  svg->Line(x.from, y.from, x.from, y.to, kInk);
  const double middle = (y.from + y.to) / 2;
  svg->Add("<text transform=\"translate(20 %.1f) rotate(-90)\" text-anchor=\"middle\">%s</text>\n",
           middle, y_name);
  if (with_x_numbers) {
    svg->Text((x.from + x.to) / 2, y.from + 38, "middle", "zoom, steps from its zero end");
  }
}

void DrawCurve(const Panel& panel, std::span<const ZfEntry> table, const char* color,
               const char* more, Svg* svg) {
  svg->Add("<polyline fill=\"none\" stroke=\"%s\" %s points=\"", color, more);
  for (const ZfEntry& entry : table)
    svg->Add("%.1f,%.1f ", panel.x.At(entry.zoom), panel.y.At(entry.focus));
  svg->Add("\"/>\n");
}

void DrawPoint(double x, double y, Fate fate, Svg* svg) {
  switch (fate) {
    case Fate::kKept:
      svg->Add("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"3\" fill=\"%s\" fill-opacity=\"0.45\"/>\n", x,
               y, kFitColor);
      break;
    case Fate::kOutlier:
      svg->Add(
          "<path d=\"M%.1f %.1f l8 8 m0 -8 l-8 8\" stroke=\"%s\" stroke-width=\"1.8\" "
          "fill=\"none\"/>\n",
          x - 4, y - 4, kDroppedColor);
      break;
    case Fate::kSearchEnd:
    case Fate::kOffTable:
      svg->Add(
          "<path d=\"M%.1f %.1f l5 5 l-5 5 l-5 -5 z\" stroke=\"%s\" stroke-width=\"1.5\" "
          "fill=\"none\"/>\n",
          x, y - 5, kDroppedColor);
      break;
  }
}

// A point beyond the panel: an arrow at the panel's edge.
void DrawBeyond(double x, double y, bool above, Svg* svg) {
  const double direction = above ? 1 : -1;
  svg->Add("<path d=\"M%.1f %.1f l4 %.1f l-8 0 z\" fill=\"%s\"/>\n", x, y + direction,
           8 * direction, kDroppedColor);
}

// --- A fit ---------------------------------------------------------------------------------------

constexpr double kFitTop = 62;
constexpr double kFitBottom = 470;
constexpr double kResidualTop = 512;
constexpr double kResidualBottom = 662;
constexpr double kFitHeight = 716;

Panel CurvePanel(const LensFit& fit, std::span<const ZfEntry> known) {
  double low = 0;
  double high = 0;
  for (const FittedEntry& entry : fit.entries)
    high = std::max(high, static_cast<double>(entry.place.focus));
  for (const JudgedPoint& judged : fit.points) {
    if (judged.fate == Fate::kOffTable) continue;
    low = std::min(low, static_cast<double>(judged.point.focus));
    high = std::max(high, static_cast<double>(judged.point.focus));
  }
  const int zoom_end = fit.entries.back().place.zoom;
  for (const ZfEntry& entry : known) {
    if (entry.zoom <= zoom_end) high = std::max(high, static_cast<double>(entry.focus));
  }
  return {.x = RoundAxis(0, zoom_end, 12, kLeft, kRight),
          .y = RoundAxis(low, high, 8, kFitBottom, kFitTop)};
}

// The part of a known curve that the fit's zoom range holds.
std::vector<ZfEntry> Within(std::span<const ZfEntry> known, int zoom_end) {
  std::vector<ZfEntry> part;
  std::copy_if(known.begin(), known.end(), std::back_inserter(part),
               [zoom_end](const ZfEntry& entry) { return entry.zoom <= zoom_end; });
  return part;
}

void DrawResiduals(const LensFit& fit, const Panel& panel, std::span<const ZfEntry> known,
                   Svg* svg) {
  const auto& [x, y] = panel;
  DrawGrid(panel, true, "residual, steps", svg);
  svg->Line(x.from, y.At(0), x.to, y.At(0), kFitColor, "stroke-width=\"2\"");
  for (const double cutoff : {-fit.cutoff, fit.cutoff}) {
    svg->Line(x.from, y.At(cutoff), x.to, y.At(cutoff), kDroppedColor,
              "stroke-dasharray=\"2 4\" stroke-opacity=\"0.7\"");
  }
  std::vector<ZfEntry> differences;
  const std::vector<ZfEntry> table = fit.Table();
  std::transform(known.begin(), known.end(), std::back_inserter(differences),
                 [&table](const ZfEntry& entry) {
                   const double off = entry.focus - FocusAt(table, entry.zoom);
                   return ZfEntry{entry.zoom, static_cast<int32_t>(std::lround(off))};
                 });
  svg->Add(
      "<clipPath id=\"residuals\"><rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" "
      "height=\"%.1f\"/></clipPath>\n<g clip-path=\"url(#residuals)\">\n",
      x.from, y.to, x.to - x.from, y.from - y.to);
  DrawCurve(panel, differences, kKnownColor, "stroke-width=\"1.5\" stroke-dasharray=\"6 4\"", svg);
  svg->Add("</g>\n");
  for (const JudgedPoint& judged : fit.points) {
    if (judged.fate == Fate::kOffTable) continue;
    const double at = x.At(judged.point.zoom);
    if (judged.residual > y.high || judged.residual < y.low) {
      DrawBeyond(at, y.Clamped(judged.residual), judged.residual > 0, svg);
    } else {
      DrawPoint(at, y.At(judged.residual), judged.fate, svg);
    }
  }
}

// Returns where the next item goes.
double DrawLegendItem(double x, const std::string& text, Svg* svg) {
  constexpr double kTextAt = 30;
  constexpr double kLetter = 6.6;
  svg->Text(x + kTextAt, 48, "start", text);
  return x + kTextAt + kLetter * static_cast<double>(text.size()) + 22;
}

void DrawLegend(const LensFit& fit, const char* known_name, Svg* svg) {
  constexpr double kY = 43.5;
  double x = kLeft;
  svg->Line(x, kY, x + 24, kY, kFitColor, "stroke-width=\"2\"");
  x = DrawLegendItem(x, "fitted table", svg);
  svg->Line(x, kY, x + 24, kY, kKnownColor, "stroke-width=\"1.5\" stroke-dasharray=\"6 4\"");
  x = DrawLegendItem(x, std::string(known_name) + ", the nearest known curve", svg);
  const struct {
    Fate fate;
    const char* name;
  } rows[] = {{Fate::kKept, "kept"},
              {Fate::kOutlier, "outliers"},
              {Fate::kSearchEnd, "at an end of the search"}};
  for (const auto& [fate, name] : rows) {
    if (fit.Count(fate) == 0) continue;
    DrawPoint(x + 18, kY, fate, svg);
    x = DrawLegendItem(x, std::string(name) + ": " + std::to_string(fit.Count(fate)), svg);
  }
}

// --- The known curves ----------------------------------------------------------------------------

constexpr std::array<const char*, kKnownCurves.size()> kCurveColors = {"#1f5fa8", "#c4501b",
                                                                       "#3a7d44"};
constexpr double kNameWidth = 70;

}  // namespace

std::string FitPicture(const LensFit& fit) {
  const KnownCurve nearest = CompareWithKnown(fit.Table()).front().curve;
  const std::vector<ZfEntry> known = Within(nearest.table, fit.entries.back().place.zoom);
  const Panel curves = CurvePanel(fit, known);
  Svg svg(kWidth, kFitHeight, kFontSize, kInk);
  svg.Text(kLeft, 24, "start", "Zoom-to-focus curve fitted to the trace points of focus searches",
           "font-size=\"16\" font-weight=\"bold\"");
  DrawLegend(fit, nearest.name, &svg);
  DrawGrid(curves, false, "focus, steps from its zero end", &svg);
  DrawCurve(curves, known, kKnownColor, "stroke-width=\"1.5\" stroke-dasharray=\"6 4\"", &svg);
  DrawCurve(curves, fit.Table(), kFitColor, "stroke-width=\"2\"", &svg);
  for (const JudgedPoint& judged : fit.points) {
    if (judged.fate == Fate::kOffTable) continue;
    DrawPoint(curves.x.At(judged.point.zoom), curves.y.At(judged.point.focus), judged.fate, &svg);
  }
  const double reach = 1.25 * fit.cutoff;
  DrawResiduals(fit,
                {.x = curves.x, .y = RoundAxis(-reach, reach, 6, kResidualBottom, kResidualTop)},
                known, &svg);
  return svg.Finish();
}

std::string KnownCurvesPicture() {
  double zoom_end = 0;
  double focus_end = 0;
  for (const KnownCurve& known : kKnownCurves) {
    zoom_end = std::max(zoom_end, static_cast<double>(known.table.back().zoom));
    for (const ZfEntry& entry : known.table)
      focus_end = std::max(focus_end, static_cast<double>(entry.focus));
  }
  constexpr double kBottom = 500;
  const Panel panel = {.x = RoundAxis(0, zoom_end, 12, kLeft, kRight),
                       .y = RoundAxis(0, focus_end, 8, kBottom, 48)};
  Svg svg(kWidth, kBottom + 54, kFontSize, kInk);
  svg.Text(kLeft, 26, "start", "Zoom-to-focus curves of the known lenses",
           "font-size=\"16\" font-weight=\"bold\"");
  DrawGrid(panel, true, "focus, steps from its zero end", &svg);
  for (size_t i = 0; i < kKnownCurves.size(); ++i) {
    const std::span<const ZfEntry> table = kKnownCurves[i].table;
    DrawCurve(panel, table, kCurveColors[i], "stroke-width=\"2\"", &svg);
    for (const ZfEntry& entry : table) {
      svg.Add("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"2.2\" fill=\"%s\"/>\n", panel.x.At(entry.zoom),
              panel.y.At(entry.focus), kCurveColors[i]);
    }
    const std::string fill = std::string("font-weight=\"bold\" fill=\"") + kCurveColors[i] + "\"";
    const double x = panel.x.At(table.back().zoom);
    const bool has_room = x + kNameWidth < kRight;
    svg.Text(has_room ? x + 8 : x - 10, panel.y.At(table.back().focus) + 4,
             has_room ? "start" : "end", kKnownCurves[i].name, fill.c_str());
  }
  return svg.Finish();
}

}  // namespace tools
