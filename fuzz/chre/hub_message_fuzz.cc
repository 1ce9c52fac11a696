// Messages from the sensor hub: whatever comes, decoding reads no byte outside it. What is decoded lies within the
// message, and keeps the promises that its receivers rely on.
//
// Input:  0: bytes as they are; else: the bytes lie in a valid table, as (kind of body, 1) | its fields' bytes
#include <cstdint>
#include <cstdlib>
#include <vector>

#include <bt_hub_generated.h>

#include "chre/hub_message.h"

namespace {

using namespace android::hardware::bluetooth::hci::hub;

void Check(bool holds) {
  if (!holds) abort();
}

void CheckWithin(std::span<const uint8_t> part, std::span<const uint8_t> whole) {
  if (part.empty()) return;
  Check(part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
  uint8_t sum = 0;
  for (const uint8_t byte : part) sum ^= byte;
  volatile uint8_t read = sum;
  (void)read;
}

void CheckDecoded(std::span<const uint8_t> message) {
  const auto decoded = Decode(message);
  if (!decoded) return;
  if (const auto* packet = std::get_if<ReceivedPacket>(&*decoded)) CheckWithin(packet->bytes, message);
  if (const auto* fragment = std::get_if<DumpFragment>(&*decoded)) CheckWithin(fragment->event, message);
  if (const auto* reply = std::get_if<Reply>(&*decoded)) {
    const auto kind = static_cast<uint8_t>(ErrorKind(reply->status));
    Check(kind > 0xC0 && kind <= 0xD4);
  }
}

std::vector<uint8_t> Table(uint8_t kind, const std::vector<uint8_t>& fields) {
  flatbuffers::FlatBufferBuilder builder;
  const uint8_t first = fields.empty() ? 0 : fields[0];
  const auto bytes =
      builder.CreateVector(fields.data() + (fields.empty() ? 0 : 1), fields.empty() ? 0 : fields.size() - 1);
  flatbuffers::Offset<void> body;
  switch (kind) {
    case bt_hub::Body_Reply:
      body = bt_hub::CreateReply(builder, static_cast<bt_hub::Status>(first)).Union();
      break;
    case bt_hub::Body_LowPowerState:
      body = bt_hub::CreateLowPowerState(builder, first != 0).Union();
      break;
    case bt_hub::Body_ConnectionEvent:
      body = bt_hub::CreateConnectionEvent(builder, static_cast<bt_hub::Connection>(first)).Union();
      break;
    case bt_hub::Body_DumpFragment:
      body = bt_hub::CreateDumpFragment(builder, first, first % 2 == 1, bytes).Union();
      break;
    default:
      body = bt_hub::CreatePacket(builder, first, bytes).Union();
  }
  bt_hub::FinishMessageBuffer(builder, bt_hub::CreateMessage(builder, first, static_cast<bt_hub::Body>(kind), body));
  return {builder.GetBufferPointer(), builder.GetBufferPointer() + builder.GetSize()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  // Memory of its own size, so that a step beyond is seen.
  const std::vector<uint8_t> bytes(data + 2, data + size);
  if (data[0] == 0) {
    CheckDecoded(bytes);
    return 0;
  }
  std::vector<uint8_t> table = Table(data[1], bytes);
  CheckDecoded(table);
  // A table with one byte changed is neither whole nor mere noise.
  table[data[0] * 31u % table.size()] ^= data[1] | 1;
  CheckDecoded(table);
  return 0;
}
