#include "tools/lens_fit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "tools/failure.h"
#include "tools/known_curves.h"
#include "tools/lens_trace.h"

namespace {

using tools::Fate;
using tools::FitOptions;
using tools::LensFit;
using tools::TracePoint;

// --- Lines -------------------------------------------------------------------------------------

// Each point as "LINE ZOOM FOCUS DIFF ".
std::string Text(const std::vector<TracePoint>& points) {
  std::string text;
  for (const TracePoint& point : points) {
    for (const int number : {point.line, point.zoom, point.focus, point.diff})
      text += std::to_string(number) + ' ';
  }
  return text;
}

TEST(LensTrace, ReadsPointsFromALog) {
  const std::tuple<const char*, const char*, size_t> rows[] = {
      {"TRACE\t1350\t-265\tdiff=-200\n", "1 1350 -265 -200 ", 0},
      {"TRACE\t 1TRACE\t 100\t 210\tdiff=   0\n", "1 100 210 0 ", 0},
      {"TRACE\t 100\n; TRACE\t 150\t 230\tdiff=  10\n", "2 150 230 10 ", 1},
      {"TRACE\t 100\t 2\n", "", 1},
      {"TRACE\t 100\t70000\tdiff=   0\n", "", 1},
      {"\n[TRACE] on\nTRACES\t1\t2\tdiff=3\nTRACE\n", "", 0},
  };
  for (const auto& [text, points, malformed] : rows) {
    const tools::TraceLog log = tools::ReadTrace(text);
    EXPECT_EQ(Text(log.points), points) << text;
    EXPECT_EQ(log.malformed.size(), malformed) << text;
  }
}

// --- Fits --------------------------------------------------------------------------------------

bool Has(const std::vector<int>& zooms, int zoom) {
  return std::ranges::find(zooms, zoom) != zooms.end();
}

// Returns points as found by searches near every entry of a curve, at every tenth step, from random
// starts, with an error of at most `noise` steps.
std::vector<TracePoint> PointsOf(std::span<const ZfEntry> curve, int at_each, double noise) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> off(-5 - noise, 5 + noise);
  std::vector<TracePoint> points;
  for (const ZfEntry& entry : curve) {
    for (int i = 0; i < at_each; ++i) {
      points.push_back({static_cast<int>(points.size()) + 1, entry.zoom,
                        entry.focus + static_cast<int>(std::lround(off(random))), 0});
    }
  }
  return points;
}

double WorstError(const LensFit& fit, std::span<const ZfEntry> curve) {
  double worst = 0;
  for (const ZfEntry& entry : fit.Table())
    worst = std::max(worst, std::abs(entry.focus - tools::FocusAt(curve, entry.zoom)));
  return worst;
}

TEST(LensFit, RejectsOnlyTheOutliers) {
  for (const tools::KnownCurve& known : tools::kKnownCurves) {
    const std::span<const ZfEntry> curve = known.table;
    auto points = PointsOf(curve, 6, 4);
    for (size_t i = 3; i < points.size(); i += 10)
      points[i].focus += i % 4 == 1 ? 45 : -45;
    // Three entries without points, which the fit must bridge.
    const std::vector<int> bridged = {200, 250, 1000};
    std::erase_if(points, [&](const TracePoint& point) { return Has(bridged, point.zoom); });
    const LensFit fit = tools::FitLens(points, FitOptions());
    for (size_t i = 0; i < points.size(); ++i)
      EXPECT_EQ(fit.points[i].fate == Fate::kOutlier, (points[i].line - 1) % 10 == 3) << i;
    EXPECT_EQ(fit.Bridged(), bridged);
    EXPECT_LE(WorstError(fit, curve), 12);
    EXPECT_EQ(tools::CompareWithKnown(fit.Table()).front().curve.table.data(), curve.data());
  }
}

// With a table that is far off, most searches end at the end of their interval.
TEST(LensFit, IgnoresSearchesWithoutAPeak) {
  auto points = PointsOf(ZFTABLE_OSPREY, 3, 0);
  const size_t good = points.size();
  for (size_t i = 0; i < good; ++i) {
    if (points[i].zoom < 1000) continue;
    for (const int off : {30, 60, 90, 120})
      points.push_back({0, points[i].zoom, points[i].focus + off, off % 60 == 0 ? -100 : -200});
  }
  const LensFit fit = tools::FitLens(points, FitOptions());
  EXPECT_LE(WorstError(fit, ZFTABLE_OSPREY), 5);
  EXPECT_EQ(fit.Count(Fate::kSearchEnd), static_cast<int>(points.size() - good));
}

TEST(LensFit, RejectsTooFewPoints) {
  // Entries without a point, options, zoom of the last entry with a point, message.
  const std::tuple<std::vector<int>, FitOptions, int, const char*> rows[] = {
      {{450, 500, 550}, {}, 1350, "none at zoom 450 to 550 (3 entries, at most 2 allowed)"},
      {{0}, {}, 1350, "none at zoom 0 (1 entry, an end of"},
      {{}, {.spacing = 100}, 700, "none at zoom 800 to 1400 (7 entries, an end"},
      {{}, {}, 2400, "zoom 2400 is beyond every known curve"},
  };
  for (const auto& [without, options, last, says] : rows) {
    std::vector<TracePoint> points;
    for (int zoom = 0; zoom <= last; zoom += 50) {
      if (!Has(without, zoom)) points.push_back({1, zoom, 200 + zoom, 0});
    }
    std::string said;
    try {
      tools::FitLens(points, options);
    } catch (const tools::Failure& failure) {
      said = failure.what();
    }
    EXPECT_NE(said.find(says), std::string::npos) << said;
  }
}

}  // namespace
