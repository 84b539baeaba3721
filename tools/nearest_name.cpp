#include "tools/nearest_name.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace tools {

namespace {

// The number of letters to insert, delete or replace.
size_t EditDistance(std::string_view from, std::string_view to) {
  std::vector<size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < from.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < to.size(); ++j) {
      const size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, replaced});
    }
  }
  return row.back();
}

}  // namespace

std::optional<std::string> NearestName(std::string_view typed,
                                       const std::vector<std::string>& names) {
  constexpr size_t kAlwaysClose = 2;
  constexpr size_t kLettersPerSlip = 3;
  size_t best = std::max(kAlwaysClose, typed.size() / kLettersPerSlip) + 1;
  std::optional<std::string> nearest;
  for (const std::string& name : names) {
    const size_t distance = EditDistance(typed, name);
    // A name that shares no letter would be a guess.
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
  if (longer.empty()) longer = NearestName(typed, names).value_or("");
  return longer.empty() ? "" : ", did you mean " + longer + "?";
}

}  // namespace tools
