#include "bench/results.h"

#include <algorithm>

#include "bench/statistics.h"

namespace bench {

Cell* Results::CellOf(const Figure& figure, const Contender& entrant) {
  const bool is_known = std::any_of(figures_.begin(), figures_.end(),
                                    [&](const Figure& known) { return known.id == figure.id; });
  if (!is_known) figures_.push_back(figure);
  return &cells_[{figure.id, &entrant}];
}

void Results::Add(const Figure& figure, const Contender& entrant, double value) {
  CellOf(figure, entrant)->samples.push_back(value);
}

void Results::AddReason(const Figure& figure, const Contender& entrant, const std::string& reason) {
  Cell* cell = CellOf(figure, entrant);
  if (cell->reason.empty()) cell->reason = reason;
}

const Cell* Results::Find(const std::string& figure, const Contender& entrant) const {
  const auto found = cells_.find({figure, &entrant});
  return found == cells_.end() ? nullptr : &found->second;
}

std::optional<double> Results::Value(const std::string& figure, const Contender& entrant) const {
  const Cell* cell = Find(figure, entrant);
  if (cell == nullptr || !cell->HasValue()) return std::nullopt;
  return Median(cell->samples);
}

}  // namespace bench
