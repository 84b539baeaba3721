// Suggests the name that a mistyped one may mean.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

// Returns the number of letters to insert, delete, replace or swap with a neighbour to turn one
// name into the other.
size_t EditDistance(std::string_view from, std::string_view to);

// Returns the first of the closest `names`, or nothing if none is close enough.
std::optional<std::string> NearestName(std::string_view typed,
                                       const std::vector<std::string>& names);

// Returns ", did you mean NAME?" with the nearest name, or with the names whose first word was
// typed ("zoom" of "zoom-tele"); "" if none is close enough.
std::string DidYouMean(std::string_view typed, const std::vector<std::string>& names);

}  // namespace tools
