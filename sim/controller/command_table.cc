#include "sim/controller/command_table.h"

#include <algorithm>

namespace bthal::sim {

bool Form::Fits(const Bytes& parameters) const {
  if (parameters.size() < length || (!open_ended && parameters.size() > length)) return false;
  const bool in_range = std::all_of(ranges.begin(), ranges.end(), [&](const Range& range) {
    uint32_t value = 0;
    for (size_t i = range.width; i > 0; --i) value = value << 8 | parameters[range.at + i - 1];
    return value >= range.least && value <= range.most;
  });
  return in_range && (valid == nullptr || valid(parameters));
}

void CommandTable::Add(uint16_t opcode, MaskBit listed, Form form, Command::Handler handler) {
  commands_[opcode] = {std::move(form), false, std::move(handler)};
  List(listed);
}

void CommandTable::AddByStatus(uint16_t opcode, MaskBit listed, Form form, Command::Handler handler) {
  commands_[opcode] = {std::move(form), true, std::move(handler)};
  List(listed);
}

void CommandTable::List(MaskBit listed) {
  if (listed.octet >= 0) supported_[static_cast<size_t>(listed.octet)] |= static_cast<uint8_t>(1u << listed.bit);
}

const Command* CommandTable::Find(uint16_t opcode) const {
  const auto found = commands_.find(opcode);
  return found == commands_.end() ? nullptr : &found->second;
}

}  // namespace bthal::sim
