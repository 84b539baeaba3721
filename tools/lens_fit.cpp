#include "tools/lens_fit.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>

#include "tools/failure.h"

namespace tools {
namespace {

// Half-widths of the daemon's searches: after a zoom stop, and when asked for.
constexpr std::array<int, 2> kSearchRanges = {100, 200};
// Steps from one stop of a search to the next.
constexpr double kSearchStep = 10;
// Standard deviation of a position that is only known to a search's step.
const double kLeastSpread = kSearchStep / std::sqrt(12.0);

constexpr double kSpreadOfMedian = 1.4826;  // of |residual|, normal distribution
constexpr double kCutoff = 4.685;           // in spreads; the usual one for bisquare weights
// What the stiffness of stage 1 is reckoned with, steps: two stops of a search. With less, two
// neighbouring entries have their way whose points are mostly wrong; with more, a lens with one
// or two points at each entry loses good ones at its bends.
constexpr double kFirstResidual = 20;
constexpr double kLeastResidual = 0.5;  // below, all residuals pull alike in stage 1
constexpr int kRoundsMax = 200;
constexpr double kSettled = 0.01;  // steps that no entry moves by any more
constexpr size_t kPointsMin = 6;

// --- Lines -------------------------------------------------------------------------------------

constexpr std::string_view kWord = "TRACE";

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

void SkipBlanks(std::string_view* text) {
  while (!text->empty() && IsBlank(text->front()))
    text->remove_prefix(1);
}

bool TakeNumber(std::string_view* text, int* number) {
  SkipBlanks(text);
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), *number);
  if (error != std::errc() || *number < INT16_MIN || *number > INT16_MAX) return false;
  text->remove_prefix(static_cast<size_t>(end - text->data()));
  return true;
}

bool TakeBlanks(std::string_view* text) {
  const size_t before = text->size();
  SkipBlanks(text);
  return text->size() < before;
}

bool TakeWord(std::string_view* text, std::string_view word) {
  if (text->substr(0, word.size()) != word) return false;
  text->remove_prefix(word.size());
  return true;
}

// What follows the word TRACE in a line; nothing where the word is not there, or part of another.
std::string_view AfterWord(std::string_view line) {
  const size_t at = line.rfind(kWord);
  if (at == std::string_view::npos) return {};
  const std::string_view rest = line.substr(at + kWord.size());
  const bool begins = at == 0 || isalpha(static_cast<unsigned char>(line[at - 1])) == 0;
  return begins && !rest.empty() && IsBlank(rest.front()) ? rest : std::string_view();
}

bool TakePoint(std::string_view text, TracePoint* point) {
  if (!TakeNumber(&text, &point->zoom) || !TakeBlanks(&text)) return false;
  if (!TakeNumber(&text, &point->focus) || !TakeBlanks(&text)) return false;
  if (!TakeWord(&text, "diff=") || !TakeNumber(&text, &point->diff)) return false;
  SkipBlanks(&text);
  return text.empty();
}

// --- The equations -----------------------------------------------------------------------------

// A symmetric matrix with two diagonals to either side of the main one.
class BandMatrix {
 public:
  explicit BandMatrix(size_t size) : rows_(size) {}

  // Adds to the element at `row` and `column`, and its mirror image; row - column is 0 to 2.
  void Add(size_t row, size_t column, double value) { rows_[row][row - column] += value; }

  // Turns the matrix, positive definite, into the factors that Solve uses: L D L'.
  void Factorize() {
    constexpr double kLeastPivot = 1e-9;  // an entry that nothing holds stays near 0
    for (size_t i = 0; i < rows_.size(); ++i) {
      if (i >= 2) {
        rows_[i][1] -= rows_[i][2] * rows_[i - 1][1];
        rows_[i][2] /= rows_[i - 2][0];
      }
      if (i >= 1) rows_[i][1] /= rows_[i - 1][0];
      double pivot = rows_[i][0];
      for (size_t k = 1; k <= std::min<size_t>(i, 2); ++k)
        pivot -= rows_[i][k] * rows_[i][k] * rows_[i - k][0];
      rows_[i][0] = std::max(pivot, kLeastPivot);
    }
  }

  std::vector<double> Solve(std::vector<double> x) const {
    const size_t size = rows_.size();
    for (size_t i = 0; i < size; ++i) {
      for (size_t k = 1; k <= std::min<size_t>(i, 2); ++k)
        x[i] -= rows_[i][k] * x[i - k];
    }
    for (size_t i = size; i-- > 0;) {
      x[i] /= rows_[i][0];
      for (size_t k = 1; k <= 2 && i + k < size; ++k)
        x[i] -= rows_[i + k][k] * x[i + k];
    }
    return x;
  }

 private:
  std::vector<std::array<double, 3>> rows_;  // row i: elements (i, i), (i, i - 1), (i, i - 2)
};

// --- The curve ---------------------------------------------------------------------------------

// Equal points, as one.
struct Observation {
  size_t lower;  // the entry at or below it
  double share;  // 0 at that entry, 1 at the next
  double focus;
  double weight;  // root of how many they are
};

double ValueAt(const std::vector<double>& curve, const Observation& o) {
  return (1 - o.share) * curve[o.lower] + o.share * curve[o.lower + 1];
}

// The normal equations of weighted least squares with the stiffness added.
BandMatrix Normal(std::span<const Observation> all, const std::vector<double>& weights,
                  double stiffness, size_t entries) {
  BandMatrix matrix(entries);
  for (size_t i = 0; i < all.size(); ++i) {
    const auto& [lower, share, focus, weight] = all[i];
    matrix.Add(lower, lower, weights[i] * (1 - share) * (1 - share));
    matrix.Add(lower + 1, lower, weights[i] * (1 - share) * share);
    matrix.Add(lower + 1, lower + 1, weights[i] * share * share);
  }
  constexpr std::array<double, 3> kSecondDifference = {1, -2, 1};
  for (size_t first = 0; first + 2 < entries; ++first) {
    for (size_t row = 0; row < 3; ++row) {
      for (size_t column = 0; column <= row; ++column) {
        matrix.Add(first + row, first + column,
                   stiffness * kSecondDifference[row] * kSecondDifference[column]);
      }
    }
  }
  return matrix;
}

std::vector<double> SolveCurve(std::span<const Observation> all, const std::vector<double>& weights,
                               double stiffness, size_t entries) {
  BandMatrix matrix = Normal(all, weights, stiffness, entries);
  std::vector<double> right(entries);
  for (size_t i = 0; i < all.size(); ++i) {
    right[all[i].lower] += weights[i] * (1 - all[i].share) * all[i].focus;
    right[all[i].lower + 1] += weights[i] * all[i].share * all[i].focus;
  }
  matrix.Factorize();
  return matrix.Solve(std::move(right));
}

struct Weighted {
  double value;
  double weight;
};

// The value below and above which lies half of the weight.
double Median(std::vector<Weighted> values) {
  std::sort(values.begin(), values.end(),
            [](const Weighted& a, const Weighted& b) { return a.value < b.value; });
  double half = 0;
  for (const Weighted& each : values)
    half += each.weight / 2;
  double below = 0;
  for (size_t i = 0; i < values.size(); ++i) {
    below += values[i].weight;
    if (below > half) return values[i].value;
    if (below == half && i + 1 < values.size()) return (values[i].value + values[i + 1].value) / 2;
  }
  return 0;
}

double SpreadOf(std::vector<Weighted> residuals) {
  for (Weighted& residual : residuals)
    residual.value = std::abs(residual.value);
  return kSpreadOfMedian * Median(std::move(residuals));
}

// Second differences of the known curves: their root mean square, and the largest.
struct Bends {
  double usual;
  double sharpest;
};

// For entries `spacing` apart: a bend grows with the square of the spacing.
Bends KnownBends(int spacing) {
  double squares = 0;
  double sharpest = 0;
  int count = 0;
  for (const KnownCurve& known : kKnownCurves) {
    for (size_t i = 1; i + 1 < known.table.size(); ++i, ++count) {
      const double bend =
          known.table[i - 1].focus - 2 * known.table[i].focus + known.table[i + 1].focus;
      squares += bend * bend;
      sharpest = std::max(sharpest, std::abs(bend));
    }
  }
  const double scale = std::pow(static_cast<double>(spacing) / TRACKING_SPACING, 2);
  return {.usual = scale * std::sqrt(squares / count), .sharpest = scale * sharpest};
}

class CurveFit {
 public:
  CurveFit(std::vector<Observation> all, size_t entries, int spacing)
      : all_(std::move(all)),
        bends_(KnownBends(spacing)),
        entries_(entries),
        weights_(all_.size()) {
    for (size_t i = 0; i < all_.size(); ++i)
      weights_[i] = all_[i].weight;
    LeastAbsolute();
    Bisquare();
  }

  const std::vector<double>& Curve() const { return curve_; }
  double Cutoff() const { return kCutoff * spread_; }

  // Standard errors of the entries.
  std::vector<double> Uncertainties() const {
    BandMatrix matrix = Normal(all_, weights_, Stiffness(), entries_);
    matrix.Factorize();
    std::vector<double> errors(entries_);
    for (size_t i = 0; i < entries_; ++i) {
      std::vector<double> unit(entries_);
      unit[i] = 1;
      errors[i] = spread_ * std::sqrt(matrix.Solve(std::move(unit))[i]);
    }
    return errors;
  }

 private:
  void LeastAbsolute() {
    const double stiffness = kFirstResidual / (bends_.usual * bends_.usual);
    curve_ = SolveCurve(all_, weights_, stiffness, entries_);
    Settle(stiffness, [this](size_t i, double residual) {
      return all_[i].weight / std::max(std::abs(residual), kLeastResidual);
    });
  }

  void Bisquare() {
    MeasureSpread();
    for (int round = 0; round < kRoundsMax; ++round) {
      const double change = Refit(Stiffness(), [this](size_t i, double residual) {
        const double share = residual / Cutoff();
        return std::abs(share) < 1 ? all_[i].weight * std::pow(1 - share * share, 2) : 0;
      });
      MeasureSpread();
      if (change < kSettled) return;
    }
  }

  // Least squares with the spread as the points' error and the sharpest bend as the curve's.
  double Stiffness() const { return std::pow(spread_ / bends_.sharpest, 2); }

  void MeasureSpread() { spread_ = std::max(SpreadOf(ResidualsNow()), kLeastSpread); }

  std::vector<Weighted> ResidualsNow() const {
    std::vector<Weighted> residuals(all_.size());
    std::transform(all_.begin(), all_.end(), residuals.begin(), [this](const Observation& o) {
      return Weighted{o.focus - ValueAt(curve_, o), o.weight};
    });
    return residuals;
  }

  template <typename Weigh>
  void Settle(double stiffness, Weigh weigh) {
    for (int round = 0; round < kRoundsMax; ++round) {
      if (Refit(stiffness, weigh) < kSettled) return;
    }
  }

  // One round. Returns by how much the entry that moved furthest has moved.
  template <typename Weigh>
  double Refit(double stiffness, Weigh weigh) {
    const std::vector<Weighted> residuals = ResidualsNow();
    for (size_t i = 0; i < all_.size(); ++i)
      weights_[i] = weigh(i, residuals[i].value);
    const std::vector<double> before =
        std::exchange(curve_, SolveCurve(all_, weights_, stiffness, entries_));
    double change = 0;
    for (size_t i = 0; i < entries_; ++i)
      change = std::max(change, std::abs(curve_[i] - before[i]));
    return change;
  }

  std::vector<Observation> all_;
  Bends bends_;
  size_t entries_;
  std::vector<double> weights_;
  std::vector<double> curve_;
  double spread_ = 0;
};

// --- Points and entries ------------------------------------------------------------------------

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
    throw Failure(EXIT_STATUS_FAILED, "zoom " + std::to_string(last) +
                                          " is beyond every known curve; say how many --entries "
                                          "the table has");
  }
  return end / spacing + 1;
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

// How many kept points lie nearest to each entry.
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

// `missing` is what there is none of.
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
                                        std::to_string(points.size()) + " can be used, " +
                                        std::to_string(kPointsMin) + " are the least");
}

double CurveAt(const std::vector<double>& curve, int spacing, int zoom) {
  const double place =
      std::clamp(static_cast<double>(zoom) / spacing, 0.0, static_cast<double>(curve.size() - 1));
  const auto lower = std::min(static_cast<size_t>(place), curve.size() - 2);
  const double share = place - static_cast<double>(lower);
  return (1 - share) * curve[lower] + share * curve[lower + 1];
}

double ResidualOf(const TracePoint& point, const CurveFit& curve_fit, int spacing) {
  return point.focus - CurveAt(curve_fit.Curve(), spacing, point.zoom);
}

// Takes back the points at an end of their search that lie on the curve of the others. Returns
// whether there are any.
bool TakeBack(const CurveFit& curve_fit, LensFit* fit) {
  bool any = false;
  for (JudgedPoint& judged : fit->points) {
    if (judged.fate != Fate::kSearchEnd) continue;
    if (std::abs(ResidualOf(judged.point, curve_fit, fit->spacing)) >= curve_fit.Cutoff()) continue;
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

TraceLog ReadTrace(std::string_view text) {
  TraceLog log;
  while (!text.empty()) {
    ++log.lines;
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    const std::string_view rest = AfterWord(line);
    if (rest.empty()) continue;
    TracePoint point = {.line = log.lines, .zoom = 0, .focus = 0, .diff = 0};
    if (TakePoint(rest, &point)) {
      log.points.push_back(point);
    } else {
      log.malformed.push_back(log.lines);
    }
  }
  return log;
}

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

  CurveFit curve_fit(Gather(fit.points, spacing, entries), entries, spacing);
  if (TakeBack(curve_fit, &fit)) {
    curve_fit = CurveFit(Gather(fit.points, spacing, entries), entries, spacing);
  }
  fit.cutoff = curve_fit.Cutoff();
  for (JudgedPoint& judged : fit.points) {
    judged.residual = ResidualOf(judged.point, curve_fit, spacing);
    if (judged.fate == Fate::kKept && std::abs(judged.residual) >= fit.cutoff)
      judged.fate = Fate::kOutlier;
  }
  const std::vector<int> counts = CountNearest(fit.points, spacing, entries);
  RequireCoverage(counts, options, "none that agree");
  fit.residuals = Summarize(fit.points);
  const std::vector<double> uncertainties = curve_fit.Uncertainties();
  const std::vector<double>& curve = curve_fit.Curve();
  for (size_t i = 0; i < entries; ++i) {
    const auto focus = static_cast<int32_t>(std::lround(std::max(curve[i], 0.0)));
    fit.entries.push_back({.place = {static_cast<int32_t>(i) * spacing, focus},
                           .points = counts[i],
                           .uncertainty = uncertainties[i]});
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
