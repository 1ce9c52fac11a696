// What may follow what has been typed of a script's line. Pure.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bthal::tool {

struct Completion {
  size_t typed = 0;                     // how many of the last characters the candidates stand for
  std::vector<std::string> candidates;  // sorted; what begins with what is typed; one that ends with '=' wants a value
};

// Those of `words` that begin with `typed`.
Completion CompleteWord(std::string_view typed, std::span<const std::string> words);

// `line` up to the cursor: verbs and commands, then their parameters and the words that these take. `more_verbs` may
// stand first too.
Completion CompleteLine(std::string_view line, std::span<const std::string> more_verbs = {});

}  // namespace bthal::tool
