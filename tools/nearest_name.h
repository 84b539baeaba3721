// "Did you mean ...": suggests the name that was probably meant.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

// The first of the closest `names`; nullopt if none is close.
std::optional<std::string> NearestName(std::string_view typed,
                                       const std::vector<std::string>& names);

// ", did you mean NAME?" with the names that begin with the typed word and a hyphen ("zoom" of
// "zoom-tele"), else the nearest name; "" if none is close.
std::string DidYouMean(std::string_view typed, const std::vector<std::string>& names);

}  // namespace tools
