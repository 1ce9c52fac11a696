#include "bthal/show/snoop/snoop_filter.h"

#include <algorithm>

#include "bthal/hci/dictionary.h"
#include "bthal/hci/hex.h"
#include "bthal/hci/words.h"

namespace bthal::tool {

bool SnoopFilter::Takes(const SnoopRecord& record) const {
  if (since_us && record.unix_us < *since_us) return false;
  if (!kinds.empty() && std::ranges::find(kinds, record.kind) == kinds.end()) return false;
  if (opcode) {
    const bool answers = record.kind == kEvent && AnsweredOpcode(record.packet) == *opcode;
    if (!answers && !IsCommand(record.kind, record.packet, *opcode)) return false;
  }
  if (!handle) return true;
  const std::vector<uint16_t> handles = ConnectionHandles(record.kind, record.packet);
  return std::ranges::find(handles, *handle) != handles.end();
}

std::optional<uint8_t> ParseKind(const std::string& word) {
  for (const uint8_t kind : {kCommand, kEvent, kAclData, kScoData, kIsoData}) {
    if (KindWord(kind) == word) return kind;
  }
  return std::nullopt;
}

std::optional<uint16_t> ParseOpcode(const std::string& text) {
  if (const Entry* command = FindCommand(text)) return command->opcode();
  const std::optional<uint64_t> number = ParseNumber(text, 0xFFFF);
  return number ? std::optional(static_cast<uint16_t>(*number)) : std::nullopt;
}

}  // namespace bthal::tool
