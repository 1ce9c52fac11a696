// How packets are shown, and which: options that several subcommands have.
#pragma once

#include <string>
#include <vector>

#include "bthal/show/snoop/log_printer.h"
#include "bthal/show/snoop/snoop_filter.h"

namespace bthal::tool {

class Command;

// Each function adds options to `sub`; what they parse into must live until the command line has been parsed.

// --time.
void AddTimeOption(Command& sub, TimeStyle* style);

// -v and -x.
void AddViewOptions(Command& sub, PacketView* view);

struct FilterWords {
  std::string since;
  std::vector<std::string> kinds;
  std::string opcode;
  std::string handle;
};

// --since, --kind, --opcode and --handle.
void AddFilterOptions(Command& sub, FilterWords* words);

// What they ask for; nothing, with one line in `error`, where that makes no sense.
std::optional<SnoopFilter> ReadFilter(const FilterWords& words, std::string* error);

}  // namespace bthal::tool
