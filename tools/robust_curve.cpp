#include "tools/robust_curve.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <span>
#include <utility>

#include "tools/known_curves.h"

namespace tools {
namespace {

// Distance of two stops of a search, steps.
constexpr double kSearchStep = 10;
// Standard deviation of a position with the resolution of a search.
const double kLeastSpread = kSearchStep / std::sqrt(12.0);

constexpr double kSpreadOfMedian = 1.4826;  // of |residual|, normal distribution
constexpr double kCutoff = 4.685;           // in spreads; the usual one for bisquare weights
// Base of the stiffness in stage 1, steps: two stops of a search. With less, two neighbouring
// entries with mostly wrong points follow these; with more, a lens with one or two points at each
// entry loses good points at its bends.
constexpr double kFirstResidual = 20;
constexpr double kLeastResidual = 0.5;  // below, all residuals pull alike in stage 1
constexpr int kRoundsMax = 200;
constexpr double kSettled = 0.01;  // steps that no entry moves by any more

// --- The equations -----------------------------------------------------------------------------

// A symmetric matrix with two diagonals on either side of the main one.
class BandMatrix {
 public:
  explicit BandMatrix(size_t size) : rows_(size) {}

  // Adds to the element at `row` and `column` and to its mirror image; row - column is 0 to 2.
  void Add(size_t row, size_t column, double value) { rows_[row][row - column] += value; }

  // Replaces the positive definite matrix by its factors L D L', which Solve uses.
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

double ValueAt(const std::vector<double>& curve, const Observation& o) {
  return (1 - o.share) * curve[o.lower] + o.share * curve[o.lower + 1];
}

// Returns the normal equations of weighted least squares with the stiffness added.
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

// Second differences of the known curves: their root mean square and their maximum.
struct Bends {
  double usual;
  double sharpest;
};

// Scales them to entries `spacing` apart: a bend grows with the square of the spacing.
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

  // Returns the standard errors of the entries.
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

  // Least squares, with the spread as the error of the points and the sharpest bend as that of the
  // curve.
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

  // Runs one iteration. Returns the largest change of an entry.
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

}  // namespace

// Returns the weighted median.
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

RobustCurve FitRobustCurve(std::vector<Observation> all, size_t entries, int spacing) {
  const CurveFit fit(std::move(all), entries, spacing);
  return {.values = fit.Curve(), .uncertainties = fit.Uncertainties(), .cutoff = fit.Cutoff()};
}

}  // namespace tools
