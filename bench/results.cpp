#include "bench/results.h"

#include <algorithm>

#include "bench/statistics.h"

namespace bench {

Cell* Results::CellOf(const Figure& figure, const std::string& entrant) {
  const bool is_known = std::any_of(figures_.begin(), figures_.end(),
                                    [&](const Figure& known) { return known.id == figure.id; });
  if (!is_known) figures_.push_back(figure);
  return &cells_[{figure.id, entrant}];
}

void Results::Add(const Figure& figure, const std::string& entrant, double value) {
  CellOf(figure, entrant)->samples.push_back(value);
}

void Results::AddReason(const Figure& figure, const std::string& entrant,
                        const std::string& reason) {
  Cell* cell = CellOf(figure, entrant);
  if (cell->reason.empty()) cell->reason = reason;
}

void Results::Merge(const Results& other) {
  for (const Figure& figure : other.figures_) {
    for (const Entrant& entrant : other.entrants) {
      const Cell* cell = other.Find(figure.id, entrant.id);
      if (cell != nullptr) *CellOf(figure, entrant.id) = *cell;
    }
  }
}

const Cell* Results::Find(const std::string& figure, const std::string& entrant) const {
  const auto found = cells_.find({figure, entrant});
  return found == cells_.end() ? nullptr : &found->second;
}

std::optional<double> Results::Value(const std::string& figure, const std::string& entrant) const {
  const Cell* cell = Find(figure, entrant);
  if (cell == nullptr || !cell->HasValue()) return std::nullopt;
  return Median(cell->samples);
}

const Entrant* Results::First(Role role) const {
  const auto found = std::find_if(entrants.begin(), entrants.end(),
                                  [role](const Entrant& entrant) { return entrant.role == role; });
  return found == entrants.end() ? nullptr : &*found;
}

const Entrant* Results::BestPeer(const Figure& figure) const {
  const Entrant* best = nullptr;
  double best_value = 0;
  for (const Entrant& entrant : entrants) {
    const auto value = Value(figure.id, entrant.id);
    if (entrant.role != Role::kPeer || !value.has_value()) continue;
    const bool is_better =
        figure.better == Better::kLess ? *value < best_value : *value > best_value;
    if (best == nullptr || is_better) {
      best = &entrant;
      best_value = *value;
    }
  }
  return best;
}

std::optional<double> Results::Ratio(const Figure& figure, const Entrant* entrant) const {
  const Entrant* subject = First(Role::kSubject);
  if (subject == nullptr || entrant == nullptr) return std::nullopt;
  const auto own = Value(figure.id, subject->id);
  const auto other = Value(figure.id, entrant->id);
  if (!own.has_value() || !other.has_value() || *own <= 0 || *other <= 0) return std::nullopt;
  return *own / *other;
}

bool Results::IsComparison(const std::string& section) const {
  return std::any_of(figures_.begin(), figures_.end(), [&](const Figure& figure) {
    return figure.section == section &&
           std::any_of(entrants.begin(), entrants.end(), [&](const Entrant& entrant) {
             return entrant.role != Role::kSubject && Find(figure.id, entrant.id) != nullptr;
           });
  });
}

}  // namespace bench
