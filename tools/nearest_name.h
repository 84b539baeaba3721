// "Did you mean ...": the name that a mistyped one is closest to.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

// Letters to put in, leave out, replace or swap with their neighbour to get from one to the other.
size_t EditDistance(std::string_view from, std::string_view to);

// The first of the closest `names`; nothing when none is close enough to be meant.
std::optional<std::string> NearestName(std::string_view typed,
                                       const std::vector<std::string>& names);

// ", did you mean NAME?" with the nearest name, or with those of which the first word was typed
// ("zoom" of "zoom-tele"); "" when none is close enough.
std::string DidYouMean(std::string_view typed, const std::vector<std::string>& names);

}  // namespace tools
