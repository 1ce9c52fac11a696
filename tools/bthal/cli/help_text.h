// Help as a terminal shows it.
#pragma once

#include <string>
#include <string_view>

namespace bthal::tool {

// Help is written for whoever reads it in a file. On a terminal, lines that begin without a blank and stand together
// are one paragraph, as wide as that; all others that are wider are broken, and go on below the column of words that
// they end in.
std::string HelpOnTerminal(std::string_view help);

}  // namespace bthal::tool
