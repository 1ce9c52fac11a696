// Which packets of a log are asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bthal/show/snoop/btsnoop_reader.h"

namespace bthal::tool {

struct SnoopFilter {
  std::optional<int64_t> since_us;  // Unix time
  std::vector<uint8_t> kinds;       // any of them; empty: all
  std::optional<uint16_t> opcode;   // this command, and what answers it
  std::optional<uint16_t> handle;   // data of this connection, and commands and events that name it

  bool Takes(const SnoopRecord& record) const;
};

// "acl", "event", ...; nothing for anything else.
std::optional<uint8_t> ParseKind(const std::string& word);

// A command's name or number.
std::optional<uint16_t> ParseOpcode(const std::string& text);

}  // namespace bthal::tool
