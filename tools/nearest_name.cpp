#include "tools/nearest_name.h"

#include <algorithm>

namespace tools {

size_t EditDistance(std::string_view from, std::string_view to) {
  // rows[i][j]: distance of the first i letters of `from` from the first j letters of `to`.
  std::vector<std::vector<size_t>> rows(from.size() + 1, std::vector<size_t>(to.size() + 1));
  for (size_t i = 0; i <= from.size(); ++i) {
    for (size_t j = 0; j <= to.size(); ++j) {
      if (i == 0 || j == 0) {
        rows[i][j] = i + j;
        continue;
      }
      const size_t differs = from[i - 1] == to[j - 1] ? 0 : 1;
      rows[i][j] = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + differs});
      const bool is_swap = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (is_swap) rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
    }
  }
  return rows[from.size()][to.size()];
}

std::optional<std::string> NearestName(std::string_view typed,
                                       const std::vector<std::string>& names) {
  constexpr size_t kAlwaysClose = 2;
  constexpr size_t kLettersPerSlip = 3;
  size_t best = std::max(kAlwaysClose, typed.size() / kLettersPerSlip) + 1;
  std::optional<std::string> nearest;
  for (const std::string& name : names) {
    const size_t distance = EditDistance(typed, name);
    // Suggest only names that share a letter with what was typed.
    if (distance >= best || distance >= std::max(name.size(), typed.size())) continue;
    best = distance;
    nearest = name;
  }
  return nearest;
}

std::string DidYouMean(std::string_view typed, const std::vector<std::string>& names) {
  std::string longer;
  for (const std::string& name : names) {
    if (name.starts_with(std::string(typed) + "-")) longer += (longer.empty() ? "" : " or ") + name;
  }
  if (!longer.empty()) return ", did you mean " + longer + "?";
  const auto nearest = NearestName(typed, names);
  return nearest.has_value() ? ", did you mean " + *nearest + "?" : "";
}

}  // namespace tools
