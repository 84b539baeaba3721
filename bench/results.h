// What a run of the benchmark has found: figures, and for each contender its samples of them.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bench/contender.h"

namespace bench {

// One row of the table.
struct Figure {
  std::string id;
  std::string section;
  std::string label;
  std::string unit;
  bool more_is_better = false;
};

// What one contender has of one figure: samples, one a round, or the reason why there are none.
struct Cell {
  std::vector<double> samples;
  std::string reason;

  // A contender that failed once has no value, however the other rounds went.
  bool HasValue() const { return reason.empty() && !samples.empty(); }
};

// A contender that takes part.
struct Entrant {
  const Contender* kind;
  std::string version;
};

class Results {
 public:
  std::string machine;
  std::vector<std::string> method;  // how was measured
  std::vector<Entrant> entrants;    // the subject first

  // Adds a sample, and the figure where it is not there yet.
  void Add(const Figure& figure, const Contender& entrant, double value);
  // Says why a contender has no value of a figure. The first reason stays.
  void AddReason(const Figure& figure, const Contender& entrant, const std::string& reason);

  const std::vector<Figure>& Figures() const { return figures_; }
  // Null where the contender has nothing of the figure, not even a reason.
  const Cell* Find(const std::string& figure, const Contender& entrant) const;
  // The median of a contender, where it has a value.
  std::optional<double> Value(const std::string& figure, const Contender& entrant) const;

 private:
  Cell* CellOf(const Figure& figure, const Contender& entrant);

  std::vector<Figure> figures_;
  std::map<std::pair<std::string, const Contender*>, Cell> cells_;
};

}  // namespace bench
