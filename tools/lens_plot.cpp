#include "tools/lens_plot.h"

#include <algorithm>
#include <csignal>
#include <cstdio>

#include "tools/failure.h"
#include "tools/format.h"
#include "tools/known_curves.h"

namespace tools {
namespace {

// The common part of all gnuplot scripts.
constexpr char kStyle[] =
    "set grid linecolor rgb '#e4e4e4'\n"
    "set border 3\n"
    "set tics nomirror\n"
    "set lmargin 10\n"
    "set ylabel 'focus, steps from its zero end'\n"
    "set linetype 1 linecolor rgb '#1f5fa8' linewidth 2\n"
    "set linetype 2 linecolor rgb '#c4501b' linewidth 2\n"
    "set linetype 3 linecolor rgb '#3a7d44' linewidth 2\n"
    "set linetype 4 linecolor rgb '#7a7a7a' linewidth 1.5 dashtype 2\n";
constexpr char kZoomLabel[] = "set xlabel 'zoom, steps from its zero end'\n";

// Quotes a text for a gnuplot script.
std::string Quoted(const std::string& text) {
  std::string quoted;
  for (const char c : text)
    quoted += c == '\'' ? "''" : std::string(1, c);
  return "'" + quoted + "'";
}

// Returns a gnuplot data block with one line for each element; `row` returns "" for an element to
// skip.
template <typename Elements, typename Row>
std::string Data(const std::string& name, const Elements& elements, Row row) {
  std::string text = "$" + name + " << END\n";
  for (const auto& element : elements)
    text += row(element);
  return text + "END\n";
}

void Draw(const std::string& path, int height, const std::string& script) {
  fflush(stdout);
  signal(SIGPIPE, SIG_IGN);  // in case gnuplot is not installed
  FILE* gnuplot = popen("exec gnuplot 2>/dev/null", "we");
  bool is_drawn = gnuplot != nullptr;
  if (is_drawn) {
    const std::string text =
        Format("set terminal svg size 960,%d font 'Helvetica,13' background 'white'\n", height) +
        "set output " + Quoted(path) + "\n" + kStyle + script;
    fwrite(text.data(), 1, text.size(), gnuplot);
    is_drawn = pclose(gnuplot) == 0;
  }
  if (!is_drawn)
    throw Failure(EXIT_STATUS_FAILED, "cannot plot " + path + "; is gnuplot installed?");
}

struct FateRow {
  Fate fate;
  const char* name;
  const char* title;
  const char* style;
};

constexpr FateRow kFates[] = {
    {Fate::kKept, "kept", "kept", "pointtype 7 pointsize 0.5 linecolor rgb '#731f5fa8'"},
    {Fate::kOutlier, "outliers", "outliers", "pointtype 2 linecolor rgb '#c4301b'"},
    {Fate::kSearchEnd, "ends", "at an end of the search", "pointtype 12 linecolor rgb '#c4301b'"},
};

// Returns a data block for each fate: zoom, focus, and the residual limited to `reach`.
std::string PointData(const LensFit& fit, double reach) {
  std::string text;
  for (const FateRow& row : kFates) {
    text += Data(row.name, fit.points, [&](const JudgedPoint& judged) {
      if (judged.fate != row.fate) return std::string();
      return Format("%d %d %.1f\n", judged.point.zoom, judged.point.focus,
                    std::clamp(judged.residual, -reach, reach));
    });
  }
  return text;
}

std::string PlotPoints(const LensFit& fit, int column, bool is_titled) {
  std::string text;
  for (const FateRow& row : kFates) {
    const int count = fit.Count(row.fate);
    if (count == 0) continue;
    text += Format(", $%s using 1:%d with points %s ", row.name, column, row.style) +
            (is_titled ? Format("title '%s: %d'", row.title, count) : "notitle");
  }
  return text + "\n";
}

}  // namespace

void DrawFit(const LensFit& fit, const std::string& path) {
  const KnownCurve nearest = CompareWithKnown(fit.Table()).front().curve;
  const std::vector<ZfEntry> table = fit.Table();
  const double reach = 1.25 * fit.cutoff;
  const int zoom_end = table.back().zoom;
  const auto known_row = [&](const ZfEntry& entry) {
    if (entry.zoom > zoom_end) return std::string();
    return Format("%d %d %.1f\n", entry.zoom, entry.focus,
                  entry.focus - FocusAt(table, entry.zoom));
  };
  const auto row = [](const ZfEntry& entry) { return Format("%d %d\n", entry.zoom, entry.focus); };
  Draw(
      path, 716,
      Data("known", nearest.table, known_row) + Data("fitted", table, row) + PointData(fit, reach) +
          "set multiplot title 'Zoom-to-focus curve fitted to the trace points of focus searches'\n"
          "set key outside top left horizontal\n"
          "set size 1,0.66\nset origin 0,0.31\n" +
          Format("set xrange [0:%d]\n", zoom_end) +
          "plot $fitted with lines linetype 1 title 'fitted table', "
          "$known with lines linetype 4 title '" +
          nearest.name + ", the nearest known curve'" + PlotPoints(fit, 2, true) +
          "unset key\nset size 1,0.31\nset origin 0,0\nset ylabel 'residual, steps'\n" +
          kZoomLabel + Format("set yrange [%f:%f]\n", -1.3 * fit.cutoff, 1.3 * fit.cutoff) +
          Format("plot 0 linetype 1, %f linetype 2 dashtype 3, %f linetype 2 dashtype 3, ",
                 fit.cutoff, -fit.cutoff) +
          "$known using 1:3 with lines linetype 4" + PlotPoints(fit, 3, false));
}

void DrawKnownCurves(const std::string& path) {
  std::string data;
  std::string plots;
  for (const KnownCurve& known : kKnownCurves) {
    data += Data(known.name, known.table,
                 [](const ZfEntry& entry) { return Format("%d %d\n", entry.zoom, entry.focus); });
    plots += (plots.empty() ? "plot $" : ", $") + std::string(known.name) +
             " with linespoints pointtype 7 pointsize 0.4 title '" + known.name + "'";
  }
  Draw(path, 554,
       data + "set title 'Zoom-to-focus curves of the known lenses'\nset key top left\n" +
           kZoomLabel + plots + "\n");
}

}  // namespace tools
