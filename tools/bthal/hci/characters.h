// Characters of UTF-8 in text of foreign origin.
#pragma once

#include <cstddef>
#include <string_view>

namespace bthal::tool {

// The length of the character beyond ASCII that `text` begins with, if a terminal may be given it: 0, there is none, or
// it is one of C1 (U+0080 to U+009F) or turns the direction of what follows; kMoreMustCome, `text` ends within it.
constexpr size_t kMoreMustCome = std::string_view::npos;
size_t WideLength(std::string_view text);

// The columns that text takes: each beginning of a character counts.
size_t ColumnsOf(std::string_view text);

// `length`, or more where that would cut a character.
size_t UncutLength(std::string_view text, size_t length);

}  // namespace bthal::tool
