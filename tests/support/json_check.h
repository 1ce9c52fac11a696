// Whether a text is JSON, as its grammar says.
#pragma once

#include <string_view>

namespace bthal::test {

// True when `text` is one JSON value and nothing else.
bool IsJson(std::string_view text);

}  // namespace bthal::test
