// Text as a shell takes it for one word.
#pragma once

#include <string>

namespace bthal::tool {

// In quotes.
std::string Quoted(const std::string& text);

// In quotes where it needs them.
std::string QuotedIfNeeded(const std::string& text);

}  // namespace bthal::tool
