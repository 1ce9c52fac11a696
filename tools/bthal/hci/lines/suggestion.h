// "Did you mean ...?"
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace bthal::tool {

// The candidate that differs from `word` by the fewest letters, if by few enough to be what was meant; else empty.
std::string Closest(std::string_view word, const std::vector<std::string>& candidates);

}  // namespace bthal::tool
