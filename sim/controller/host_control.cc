#include "sim/controller/host_control.h"

#include <algorithm>
#include <bit>

#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr size_t kNameSize = 248;

Answer Ok(const Bytes& /*parameters*/) { return {}; }

Answer LocalName(const Identity& identity) {
  Bytes answer{kSuccess};
  answer.insert(answer.end(), identity.name.begin(), identity.name.end());
  answer.resize(1 + kNameSize);
  return Answer::Complete(answer);
}

//   0: clear
//   1: inquiry results | what must hold: 0 | 1, class and mask | 2, address
//   2: connections     | the same                              | whether to accept by itself, 1 to 3
bool FilterFits(const Bytes& parameters) {
  constexpr uint8_t kInquiryResults = 1;
  constexpr uint8_t kConnections = 2;
  constexpr size_t kOperand = 6;
  const uint8_t type = parameters[0];
  if (type == 0) return parameters.size() == 1;
  if (type > kConnections || parameters.size() < 2 || parameters[1] > 2) return false;
  const size_t size = 2 + (parameters[1] == 0 ? 0 : kOperand);
  if (type == kInquiryResults) return parameters.size() == size;
  return parameters.size() == size + 1 && parameters[size] >= 1 && parameters[size] <= 3;
}

// A map of 79 channels, at least 20 of which must stay in use.
bool EnoughChannels(const Bytes& map) {
  constexpr int kLeast = 20;
  constexpr uint8_t kNoChannel = 0x80;
  int channels = 0;
  for (const uint8_t byte : map) channels += std::popcount(byte);
  return channels >= kLeast && (map.back() & kNoChannel) == 0;
}

// A map of 37 channels.
bool SomeLeChannel(const Bytes& map) {
  constexpr uint8_t kNoChannels = 0xE0;
  return (map.back() & kNoChannels) == 0 && std::any_of(map.begin(), map.end(), [](uint8_t byte) { return byte != 0; });
}

//   count | handle and number of packets, 16 bits each, so many times
bool CompletedPacketsFit(const Bytes& parameters) { return parameters.size() == 1u + 4u * parameters[0]; }

}  // namespace

void AddHostControl(CommandTable* table, Identity* identity) {
  table->Add(kSetEventFilter, {6, 0}, {1, {}, FilterFits, true}, Ok);
  // No link key is stored, and there is no room for any.
  table->Add(kReadStoredLinkKey, {6, 5}, {7, {Flag(6)}}, [](const Bytes&) {
    return Answer::Complete({kSuccess, 0, 0, 0, 0});
  });
  table->Add(kDeleteStoredLinkKey, {6, 7}, {7, {Flag(6)}}, [](const Bytes&) {
    return Answer::Complete({kSuccess, 0, 0});
  });
  table->Add(kWriteLocalName, {7, 0}, {kNameSize}, [identity](const Bytes& name) {
    identity->name = std::string(name.begin(), std::find(name.begin(), name.end(), 0));
    return Answer();
  });
  table->Add(kReadLocalName, {7, 1}, {}, [identity](const Bytes&) { return LocalName(*identity); });
  table->Add(kHostCompletedPackets, {10, 7}, {1, {}, CompletedPacketsFit, true},
             [](const Bytes&) { return Answer::None(); });
  table->Add(kReadNumberOfSupportedIac, {11, 2}, {}, [](const Bytes&) { return Answer::Complete({kSuccess, 1}); });
  table->Add(kSetAfhClassification, {12, 1}, {10, {}, EnoughChannels}, Ok);
  table->Add(kLeSetChannelClassification, {27, 3}, {5, {}, SomeLeChannel}, Ok);
}

}  // namespace bthal::sim
