// The words of the prompt.
#pragma once

#include <string>
#include <string_view>

#include "bthal/hci/lines/line_completion.h"

namespace bthal::tool {

// Whether it is one of the shell's own, and not of the language of scripts.
bool IsShellVerb(const std::string& word);

// What may follow `line` up to the cursor, faults included.
Completion CompleteShellLine(std::string_view line);

// All faults there are.
std::string FaultWordsHelp();

}  // namespace bthal::tool
