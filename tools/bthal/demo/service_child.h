// The service as a child of ours, with its log in a file.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "bthal/run/process.h"

namespace bthal::tool {

// Its log begins anew; `environment` comes on top of ours. Not running, with one line in `error`, when it cannot be
// started.
Child SpawnService(const std::string& log, std::string* error,
                   std::vector<std::pair<std::string, std::string>> environment = {});

// What it said last of all, of what matters (see last_words.h).
std::vector<std::string> LastWordsIn(const std::string& log);

}  // namespace bthal::tool
