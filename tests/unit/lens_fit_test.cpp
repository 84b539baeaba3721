#include "tools/lens_fit.h"

#include <gtest/gtest.h>
#include <json-c/json.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "sim/daemon_process.h"
#include "tools/failure.h"
#include "tools/known_curves.h"
#include "tools/lens_plot.h"
#include "tools/lens_report.h"

namespace {

using tools::Fate;
using tools::FitOptions;
using tools::LensFit;
using tools::TracePoint;

// --- Lines -------------------------------------------------------------------------------------

// Each point as "LINE: ZOOM FOCUS DIFF".
std::string Text(const std::vector<TracePoint>& points) {
  std::string text;
  for (const TracePoint& point : points) {
    char line[64];
    snprintf(line, sizeof(line), "%d: %d %d %d\n", point.line, point.zoom, point.focus, point.diff);
    text += line;
  }
  return text;
}

TEST(LensTrace, TakesPointsOutOfALog) {
  const struct {
    const char* legend;
    const char* text;
    size_t malformed;
    const char* points;
  } rows[] = {
      {"widest numbers", "TRACE\t1350\t-265\tdiff=-200\n", 0, "1: 1350 -265 -200\n"},
      {"no line feed at the end", "TRACE\t 100\t 210\tdiff=   0", 0, "1: 100 210 0\n"},
      {"tabs pasted as blanks", "TRACE     100     210    diff=   0\n", 0, "1: 100 210 0\n"},
      {"serial console", "x\r\nTRACE\t 100\t 210\tdiff=   0\r\n", 0, "2: 100 210 0\n"},
      {"log's head", "10:33:53 rs232d[7]: TRACE\t 100\t 210\tdiff=  -5\n", 0, "1: 100 210 -5\n"},
      {"behind a cut one", "TRACE\t 1TRACE\t 100\t 210\tdiff=   0\n", 0, "1: 100 210 0\n"},
      {"after one", "TRACE\t 100\n; TRACE\t 150\t 230\tdiff=  10\n", 1, "2: 150 230 10\n"},
      {"cut in the focus", "TRACE\t 100\t 2\n", 1, ""},
      {"letters in a number", "TRACE\t 10x\t 210\tdiff=   0\n", 1, ""},
      {"beyond 16 bits", "TRACE\t 100\t70000\tdiff=   0\n", 1, ""},
      {"beyond any number", "TRACE\t 100\t99999999999999\tdiff=   0\n", 1, ""},
      {"other lines", "\n[TRACE] on\nTRACES\t1\t2\tdiff=3\nTRACE\n", 0, ""},
  };
  for (const auto& row : rows) {
    const tools::TraceLog log = tools::ReadTrace(row.text);
    EXPECT_EQ(Text(log.points), row.points) << row.legend;
    EXPECT_EQ(log.malformed.size(), row.malformed) << row.legend;
  }
}

TEST(LensTrace, SurvivesBytesThatAreNoText) {
  std::mt19937 random(1);
  std::string text;
  const std::string likely = "TRACE\t\n= -0d";
  for (int i = 0; i < 200000; ++i) {
    const auto any = static_cast<char>(random() & 0xFF);
    text += random() % 7 == 0 ? likely[random() % likely.size()] : any;
  }
  text += "\nTRACE\t 100\t 210\tdiff=   0\n";
  const tools::TraceLog log = tools::ReadTrace(text);
  ASSERT_FALSE(log.points.empty());
  EXPECT_EQ(log.points.back().focus, 210);
  EXPECT_EQ(log.lines, std::count(text.begin(), text.end(), '\n'));
}

// --- Fits --------------------------------------------------------------------------------------

// How points are made of a curve.
struct Recipe {
  const char* legend;
  size_t at_each = 5;      // points at each entry
  double noise = 8;        // largest error of a point, on top of the search's step
  double outliers = 0;     // share of points that lie 60 to 190 steps off
  bool one_sided = false;  // all outliers above the curve
  bool between = false;    // zooms anywhere instead of at the entries
  bool shuffled = false;
  std::vector<size_t> empty = {};  // entries without points
  std::vector<size_t> wrong = {};  // entries at which three points of five are 100 steps too high
  std::vector<size_t> repeated = {};  // entries at which one wrong point came 20 times more
  double limit = 5;                   // largest error of an entry
};

const Recipe kRecipes[] = {
    {.legend = "exact, one point at each entry", .at_each = 1, .noise = -1, .limit = 1},
    {.legend = "wherever the zoom stopped",
     .at_each = 12,
     .noise = 4,
     .outliers = 0.1,
     .between = true},
    {.legend = "unsorted", .at_each = 8, .outliers = 0.1, .shuffled = true},
    {.legend = "entries without points", .noise = 4, .empty = {4, 5, 20}, .limit = 12},
    {.legend = "most points of two neighbours wrong", .noise = 4, .wrong = {9, 10}, .limit = 6},
    {.legend = "three in ten wrong, to one side",
     .at_each = 12,
     .noise = 4,
     .outliers = 0.3,
     .one_sided = true,
     .limit = 8},
    {.legend = "one wrong search again and again", .noise = 4, .repeated = {3, 22}, .limit = 6},
};

bool Has(const std::vector<size_t>& entries, size_t entry) {
  return std::find(entries.begin(), entries.end(), entry) != entries.end();
}

class Maker {
 public:
  explicit Maker(uint32_t seed) : random_(seed) {}

  std::vector<TracePoint> Points(std::span<const ZfEntry> curve, const Recipe& recipe) {
    std::vector<TracePoint> points;
    for (size_t entry = 0; entry < curve.size(); ++entry) {
      if (Has(recipe.empty, entry)) continue;
      for (size_t i = 0; i < recipe.at_each; ++i) {
        TracePoint point = Point(curve, entry, recipe);
        if (Has(recipe.wrong, entry) && i < 3) point.focus += 100;
        points.push_back(point);
      }
      if (!Has(recipe.repeated, entry)) continue;
      points.insert(points.end(), 21, {0, curve[entry].zoom, curve[entry].focus + 70, 0});
    }
    if (recipe.shuffled) std::shuffle(points.begin(), points.end(), random_);
    for (size_t i = 0; i < points.size(); ++i)
      points[i].line = static_cast<int>(i) + 1;
    return points;
  }

 private:
  double Between(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
  }

  // A search looks at every tenth step, from anywhere.
  TracePoint Point(std::span<const ZfEntry> curve, size_t entry, const Recipe& recipe) {
    TracePoint point = {0, curve[entry].zoom, 0, 0};
    if (recipe.between) {
      point.zoom =
          std::clamp(point.zoom + static_cast<int>(Between(-25, 25)), 0, curve.back().zoom);
    }
    double focus = tools::FocusAt(curve, point.zoom);
    if (recipe.noise >= 0) focus += Between(-5, 5) + Between(-recipe.noise, recipe.noise);
    if (Between(0, 1) < recipe.outliers) {
      const double off = Between(60, 190);
      focus += recipe.one_sided || Between(0, 1) < 0.5 ? off : -off;
    }
    point.focus = static_cast<int>(std::lround(focus));
    return point;
  }

  std::mt19937 random_;
};

double WorstError(const LensFit& fit, std::span<const ZfEntry> curve) {
  double worst = 0;
  for (const ZfEntry& entry : fit.Table())
    worst = std::max(worst, std::abs(entry.focus - tools::FocusAt(curve, entry.zoom)));
  return worst;
}

class LensFits : public testing::TestWithParam<tools::KnownCurve> {};

TEST_P(LensFits, FindTheCurve) {
  for (const Recipe& recipe : kRecipes) {
    SCOPED_TRACE(recipe.legend);
    Maker maker(7);
    const auto points = maker.Points(GetParam().table, recipe);
    const LensFit fit = tools::FitLens(points, FitOptions());
    ASSERT_EQ(fit.entries.size(), GetParam().table.size());
    for (size_t i = 0; i < fit.entries.size(); ++i)
      EXPECT_EQ(fit.entries[i].place.zoom, GetParam().table[i].zoom);
    EXPECT_LE(WorstError(fit, GetParam().table), recipe.limit);
    EXPECT_EQ(fit.Bridged().size(), recipe.empty.size());
    EXPECT_EQ(fit.points.size(), points.size());
    EXPECT_EQ(tools::CompareWithKnown(fit.Table()).front().curve.table.data(),
              GetParam().table.data());
  }
}

TEST_P(LensFits, DropTheWrongPointsAndNoOthers) {
  Maker maker(11);
  auto points = maker.Points(GetParam().table, {.legend = "", .at_each = 6, .noise = 4});
  for (size_t i = 3; i < points.size(); i += 10)
    points[i].focus += i % 4 == 1 ? 45 : -45;
  const LensFit fit = tools::FitLens(points, FitOptions());
  for (size_t i = 0; i < points.size(); ++i) {
    EXPECT_EQ(fit.points[i].point.line, static_cast<int>(i) + 1);
    EXPECT_EQ(fit.points[i].fate, i % 10 == 3 ? Fate::kOutlier : Fate::kKept) << i;
    EXPECT_NEAR(std::abs(fit.points[i].residual), i % 10 == 3 ? 45 : 0, 15) << i;
  }
}

// What an entry is said to be uncertain by is what it is off by, on the whole.
TEST_P(LensFits, KnowHowGoodTheyAre) {
  Maker maker(3);
  double squares = 0;
  int count = 0;
  constexpr int kFits = 40;
  for (int i = 0; i < kFits; ++i) {
    const auto points =
        maker.Points(GetParam().table, {.legend = "", .at_each = 5, .noise = 4, .outliers = 0.1});
    const LensFit fit = tools::FitLens(points, FitOptions());
    for (const tools::FittedEntry& entry : fit.entries) {
      const double error = entry.place.focus - tools::FocusAt(GetParam().table, entry.place.zoom);
      squares += std::pow(error / entry.uncertainty, 2);
      ++count;
    }
  }
  EXPECT_GT(std::sqrt(squares / count), 0.6);
  EXPECT_LT(std::sqrt(squares / count), 1.4);
}

INSTANTIATE_TEST_SUITE_P(Curves, LensFits, testing::ValuesIn(tools::kKnownCurves),
                         [](const auto& curve) { return std::string(curve.param.name); });

// Where the table in use is far off, most searches end where their intervals do.
TEST(LensFit, LeavesOutSearchesThatSawNoPeak) {
  Maker maker(5);
  auto points = maker.Points(ZFTABLE_OSPREY, {.legend = "", .at_each = 3, .noise = 0});
  const size_t good = points.size();
  for (size_t i = 0; i < good; ++i) {
    if (points[i].zoom < 1000) continue;
    for (const int off : {30, 60, 90, 120})
      points.push_back({0, points[i].zoom, points[i].focus + off, off % 60 == 0 ? -100 : -200});
  }
  // One that found the peak there all the same.
  points.push_back({0, 1200, 1501, -100});
  const LensFit fit = tools::FitLens(points, FitOptions());
  EXPECT_LE(WorstError(fit, ZFTABLE_OSPREY), 5);
  EXPECT_EQ(fit.Count(Fate::kSearchEnd), static_cast<int>(points.size() - good) - 1);
  EXPECT_EQ(fit.points.back().fate, Fate::kKept);
}

// A table of its own size and spacing, with points that lie off it.
TEST(LensFit, TakesASizeOfItsOwn) {
  std::vector<TracePoint> points;
  for (int zoom = -20; zoom <= 420; zoom += 10)
    points.push_back({0, zoom, 900 - 2 * zoom, 0});
  const LensFit fit = tools::FitLens(points, {.spacing = 80, .entries = 5, .max_gap = 0});
  const std::vector<ZfEntry> table = fit.Table();
  ASSERT_EQ(table.size(), 5U);
  for (const ZfEntry& entry : table)
    EXPECT_EQ(entry.focus, 900 - 2 * entry.zoom);
  EXPECT_EQ(fit.Count(Fate::kOffTable), 12);
}

TEST(LensFit, RefusesToGuess) {
  const struct {
    const char* legend;
    std::vector<size_t> empty;
    FitOptions options;
    int last;  // zoom of the last entry with a point
    const char* says;
  } rows[] = {
      {"a gap", {9, 10, 11}, {}, 1350, "none at zoom 450 to 550 (3 entries, at most 2 allowed)"},
      {"a gap of its own limit", {9}, {.max_gap = 0}, 1350, "none at zoom 450 (1 entry, at most 0"},
      {"no point at the first entry", {0}, {}, 1350, "none at zoom 0 (1 entry, an end of"},
      {"half the range", {}, {.spacing = 100}, 700, "none at zoom 800 to 1400 (7 entries, an end"},
      {"beyond all curves", {}, {}, 2400, "zoom 2400 is beyond every known curve"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    std::vector<TracePoint> points;
    for (int zoom = 0; zoom <= row.last; zoom += 50) {
      if (!Has(row.empty, static_cast<size_t>(zoom / 50)))
        points.push_back({1, zoom, 200 + zoom, 0});
    }
    try {
      tools::FitLens(points, row.options);
      ADD_FAILURE() << "a table came out";
    } catch (const tools::Failure& failure) {
      EXPECT_NE(std::string(failure.what()).find(row.says), std::string::npos) << failure.what();
      EXPECT_EQ(failure.status, tools::EXIT_STATUS_FAILED);
    }
  }
}

// All points of an entry wrong, and so dropped: the entry is as good as without.
TEST(LensFit, RefusesAGapThatDroppedPointsLeave) {
  Maker maker(1);
  auto points = maker.Points(ZFTABLE_HERON, {.legend = "", .at_each = 2, .noise = -1});
  for (TracePoint& point : points) {
    if (point.zoom == 600 || point.zoom == 650) point = {0, point.zoom, point.focus + 300, 200};
  }
  EXPECT_THROW(tools::FitLens(points, {.max_gap = 1}), tools::Failure);
  EXPECT_EQ(tools::FitLens(points, FitOptions()).Bridged(), (std::vector<int>{600, 650}));
}

// --- Texts -------------------------------------------------------------------------------------

TEST(LensTable, IsAsInTheSource) {
  EXPECT_EQ(tools::TableText("HERON", std::span(ZFTABLE_HERON).first(8)),
            "inline constexpr std::array<ZfEntry, 8> ZFTABLE_HERON = {{\n"
            "    {0, 200},   {50, 200},  {100, 210}, {150, 230}, {200, 240}, {250, 260},\n"
            "    {300, 280}, {350, 310},\n"
            "}};\n");
}

class LensReport : public testing::Test {
 protected:
  LensReport() {
    for (int i = 0; i < 28; ++i) {
      if (i == 5) continue;
      const int focus = ZFTABLE_HERON[static_cast<size_t>(i)].focus;
      for (const int off : {-2, 0, 2})
        text += Line(50 * i, focus + off, 10);
    }
    text += Line(350, 500, 30);    // outlier, line 82
    text += Line(350, 210, -100);  // at its search's end
    text += "TRACE\t 350\t 2\n";   // malformed, line 84
    log = tools::ReadTrace(text);
    fit = tools::FitLens(log.points, FitOptions());
  }

  static std::string Line(int zoom, int focus, int diff) {
    char line[64];
    snprintf(line, sizeof(line), "TRACE\t%4d\t%4d\tdiff=%4d\n", zoom, focus, diff);
    return line;
  }

  std::string text;
  tools::TraceLog log;
  LensFit fit = {};
};

TEST_F(LensReport, NamesWhatWasDropped) {
  const std::string report = tools::FitReport(log, fit);
  for (const char* part :
       {"83 trace points in 84 lines: 81 kept, 2 dropped; 1 malformed\n",
        "      82    350    500    +190.0  outlier\n",
        "      83    350    210    -100.0  at the end of its search\n", "  from its neighbours\n",
        "  HERON         28    0.1       -3 at zoom 250, the nearest\n"})
    EXPECT_NE(report.find(part), std::string::npos) << part << report;
  EXPECT_EQ(tools::FitWarnings(log, fit),
            "malformed trace points in lines 84\n"
            "no point at zoom 250; taken from the neighbours\n");
}

TEST_F(LensReport, JsonHoldsTheSame) {
  json_object* root = json_tokener_parse(tools::FitJson(log, fit).c_str());
  ASSERT_NE(root, nullptr);
  const auto at = [root](const char* key) { return json_object_object_get(root, key); };
  EXPECT_EQ(json_object_get_int(at("kept")), 81);
  EXPECT_EQ(json_object_get_int(json_object_array_get_idx(at("malformed"), 0)), 84);
  json_object* dropped = json_object_array_get_idx(at("dropped"), 0);
  EXPECT_EQ(json_object_get_int(json_object_object_get(dropped, "line")), 82);
  json_object* last = json_object_array_get_idx(at("entries"), 27);
  EXPECT_EQ(json_object_get_int(json_object_object_get(last, "focus")), 2265);
  json_object_put(root);
}

// Each point stands in both panels; one beyond the residuals' panel as an arrow.
TEST_F(LensReport, PictureShowsEachPoint) {
  const std::string picture = tools::FitPicture(fit);
  EXPECT_EQ(sim::CountOf("<circle", picture), 2U * 81 + 1) << "kept, and their sign in the legend";
  EXPECT_EQ(sim::CountOf("m0 -8 l-8 8", picture), 2U) << "the outlier and its sign";
  EXPECT_EQ(sim::CountOf("l5 5 l-5 5", picture), 2U) << "the one at its search's end and its sign";
  EXPECT_EQ(sim::CountOf("l-8 0 z", picture), 2U) << "arrows";
  EXPECT_EQ(picture.find("nan"), std::string::npos);
}

}  // namespace
