// What a run of the benchmark has found: figures, and for each contender its samples of them.
//
// The one record between measuring and reporting. It goes through JSON from the private world to
// the reports, and from a file of an earlier run just as well.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

enum class Better { kLess, kMore };

// One row of the table.
struct Figure {
  std::string id;
  std::string section;
  std::string label;
  std::string unit;
  Better better = Better::kLess;
};

// What one contender has of one figure: samples, one a round, or the reason why there are none.
struct Cell {
  std::vector<double> samples;
  std::string reason;

  // A contender that failed once has no value, however the other rounds went.
  bool HasValue() const { return reason.empty() && !samples.empty(); }
};

enum class Role { kSubject, kPeer, kLimit };

// A contender as the report names it.
struct Entrant {
  std::string id;
  std::string what;
  std::string version;
  Role role = Role::kPeer;
};

class Results {
 public:
  // Name and value, in order: the machine, and how was measured.
  std::vector<std::pair<std::string, std::string>> machine;
  std::vector<std::string> method;
  std::vector<Entrant> entrants;

  // Adds a sample, and the figure where it is not there yet.
  void Add(const Figure& figure, const std::string& entrant, double value);
  // Says why a contender has no value of a figure. The first reason stays.
  void AddReason(const Figure& figure, const std::string& entrant, const std::string& reason);
  // Takes over every figure of another run.
  void Merge(const Results& other);

  const std::vector<Figure>& Figures() const { return figures_; }
  // Null where the contender has nothing of the figure, not even a reason.
  const Cell* Find(const std::string& figure, const std::string& entrant) const;
  // The median of a contender, where it has a value.
  std::optional<double> Value(const std::string& figure, const std::string& entrant) const;

  // The first entrant of a role that is not a peer; null where there is none.
  const Entrant* First(Role role) const;
  // The peer with the best value of a figure; null where no peer has one.
  const Entrant* BestPeer(const Figure& figure) const;
  // The subject's value divided by that of `entrant`, where both have one above 0.
  std::optional<double> Ratio(const Figure& figure, const Entrant* entrant) const;
  // True for a section in which more than the subject takes part.
  bool IsComparison(const std::string& section) const;

 private:
  Cell* CellOf(const Figure& figure, const std::string& entrant);

  std::vector<Figure> figures_;
  std::map<std::pair<std::string, std::string>, Cell> cells_;
};

// The same as JSON text, with medians and ratios for other readers.
std::string ToJson(const Results& results);
// Takes back what ToJson wrote. Throws std::runtime_error for anything else.
Results FromJson(const std::string& text);

}  // namespace bench
