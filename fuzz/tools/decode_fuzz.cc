// The decoder: the first byte is an H4 type, the rest a packet of it. It reads nothing beyond the packet, and what it
// takes for whole and known is encoded to the same bytes again.
#include <android-base/stringprintf.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "bthal/hci/decode.h"
#include "bthal/hci/encode.h"
#include "bthal/hci/tell_packet.h"
#include "bthal/hci/words.h"

namespace {

using bthal::tool::Entry;
using bthal::tool::Field;
using bthal::tool::FieldType;
using bthal::tool::FieldValue;

bool IsPlain(const std::vector<Field>& fields) {
  for (const Field& field : fields) {
    if (field.type.base != FieldType::Base::kNumber) return false;
  }
  return true;
}

// A command of nothing but numbers, written as its values say.
void CheckRoundTrip(std::span<const uint8_t> packet) {
  const Entry* command = bthal::tool::FindCommand(static_cast<uint16_t>(packet[0] | packet[1] << 8));
  if (command == nullptr || !IsPlain(command->parameters)) return;
  std::vector<std::string> values;
  for (const FieldValue& value : bthal::tool::DecodeCommand(packet).values) {
    const size_t unused = 64 - 8 * value.field->type.width;
    const auto number = static_cast<unsigned long long>(value.number << unused >> unused);
    values.push_back(android::base::StringPrintf("!0x%llX", number));
  }
  std::string error;
  const auto again = bthal::tool::BuildCommand(*command, values, &error);
  if (!again || !std::equal(again->begin(), again->end(), packet.begin(), packet.end())) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  // A copy of just this size: a byte too far is seen.
  const std::vector<uint8_t> packet(data + 1, data + size);
  const uint8_t kind = data[0];
  const std::string words = bthal::tool::PacketWords(kind, packet);
  const std::string problem = bthal::tool::PacketProblem(kind, packet);
  if (words.empty() || words.find('\n') != words.npos) abort();
  bthal::tool::PacketFields(kind, packet);
  bthal::tool::TellPacket(packet);
  if (kind == bthal::tool::kCommand && problem.empty()) CheckRoundTrip(packet);
  return 0;
}
