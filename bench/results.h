// Results of a benchmark run: figures, with the samples of each contender.
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

// The samples of one contender for one figure, one a round, or the reason why there are none.
struct Cell {
  std::vector<double> samples;
  std::string reason;

  // A contender that failed in any round has no value.
  bool HasValue() const { return reason.empty() && !samples.empty(); }
};

// An installed contender.
struct Entrant {
  const Contender* kind;
  std::string version;
};

class Results {
 public:
  std::string machine;
  std::vector<std::string> method;  // description of the measurements
  std::vector<Entrant> entrants;    // the subject first

  // Adds a sample, and the figure if it is new.
  void Add(const Figure& figure, const Contender& entrant, double value);
  // Records why a contender has no value of a figure. Keeps the first reason.
  void AddReason(const Figure& figure, const Contender& entrant, const std::string& reason);

  const std::vector<Figure>& Figures() const { return figures_; }
  // Null if the contender has neither samples nor a reason.
  const Cell* Find(const std::string& figure, const Contender& entrant) const;
  // The median of a contender; nullopt if it has no value.
  std::optional<double> Value(const std::string& figure, const Contender& entrant) const;

 private:
  Cell* CellOf(const Figure& figure, const Contender& entrant);

  std::vector<Figure> figures_;
  std::map<std::pair<std::string, const Contender*>, Cell> cells_;
};

}  // namespace bench
