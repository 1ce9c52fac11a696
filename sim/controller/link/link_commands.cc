// What a host asks about, or of, a connection that is there.
#include "sim/controller/link/connections.h"
#include "sim/controller/opcodes.h"
#include "sim/controller/timing.h"

namespace bthal::sim {
namespace {

constexpr uint8_t kPeerVersion = 0x0C;
constexpr uint16_t kNoCompany = 0xFFFF;
constexpr uint8_t kOneMegabit = 1;
// A low-energy neighbour can lengthen data packets and nothing else.
const Bytes& PeerLeFeatures() {
  static const auto& features = *new Bytes{0x20, 0, 0, 0, 0, 0, 0, 0};
  return features;
}

//   handle | times
bool UpdateFits(const Bytes& parameters) { return ConnectionTimesFit(&parameters[2]); }

//   handle | wish | how to code
bool PhyFits(const Bytes& parameters) { return PhyWishFits(&parameters[2]); }

}  // namespace

Answer Connections::ForConnection(const Bytes& parameters, Then then) const {
  const uint16_t handle = GetLe16(parameters.data());
  if (connections_.count(handle) == 0) return Answer::Status(kUnknownConnection);
  return Answer::Status(kSuccess, [handle, parameters, then = std::move(then)] { then(handle, parameters); });
}

Answer Connections::OfConnection(const Bytes& parameters, const Bytes& more) const {
  const bool known = connections_.count(GetLe16(parameters.data())) != 0;
  Bytes answer{known ? kSuccess : kUnknownConnection, parameters[0], parameters[1]};
  PutAll(answer, known ? more : Bytes(more.size(), 0));
  return Answer::Complete(answer);
}

void Connections::AddQuestions(CommandTable* table) {
  constexpr uint8_t kMinus50 = 0xCE;
  static const Bytes all_channels{0xFF, 0xFF, 0xFF, 0xFF, 0x1F};
  table->Add(kReadRssi, {15, 5}, {2}, [this](const Bytes& p) { return OfConnection(p, {kMinus50}); });
  table->Add(kLeReadChannelMap, {27, 4}, {2}, [this](const Bytes& p) { return OfConnection(p, all_channels); });
  table->Add(kLeReadPhy, {35, 4}, {2}, [this](const Bytes& p) { return OfConnection(p, {kOneMegabit, kOneMegabit}); });
  //   [sub-event |] status | handle | what is told
  auto add = [&](uint16_t opcode, MaskBit listed, uint8_t code, const Bytes& head, const Bytes& told) {
    table->AddByStatus(opcode, listed, {2}, [this, code, head, told](const Bytes& p) {
      return ForConnection(p, [this, code, head, told](uint16_t handle, const Bytes&) {
        Bytes event = head;
        Put8(event, kSuccess);
        Put16(event, handle);
        PutAll(event, told);
        outlet_->SendEvent(code, event);
      });
    });
  };
  Bytes version{kPeerVersion};
  Put16(version, kNoCompany);
  Put16(version, 0);
  add(kReadRemoteFeatures, {2, 5}, kRemoteFeaturesEvent, {}, Bytes(8, 0));
  add(kReadRemoteVersion, {2, 7}, kRemoteVersionEvent, {}, version);
  add(kLeReadRemoteFeatures, {27, 5}, kLeMetaEvent, {kLeRemoteFeaturesComplete}, PeerLeFeatures());
}

void Connections::AddLinkSettings(CommandTable* table) {
  table->AddByStatus(kLeSetPhy, {35, 6}, {7, {Word(5, 0, 2)}, PhyFits}, [this](const Bytes& p) {
    return ForConnection(p, [this](uint16_t handle, const Bytes&) {
      Bytes event{kLePhyUpdateComplete, kSuccess};
      Put16(event, handle);
      PutAll(event, {kOneMegabit, kOneMegabit});
      outlet_->SendEvent(kLeMetaEvent, event);
    });
  });
  table->AddByStatus(kLeConnectionUpdate, {27, 2}, {14, {}, UpdateFits}, [this](const Bytes& p) {
    // The longest interval asked for, latency and timeout as asked for.
    return ForConnection(p, [this](uint16_t handle, const Bytes& asked) {
      Bytes event{kLeConnectionUpdateComplete, kSuccess};
      Put16(event, handle);
      PutAll(event, Part(asked, 4, 6));
      outlet_->SendEvent(kLeMetaEvent, event);
    });
  });
  table->Add(kLeSetDataLength, {33, 6}, {6, {DataOctets(2), DataTime(4)}}, [this](const Bytes& p) {
    Answer answer = OfConnection(p, {});
    if (answer.parameters[0] != kSuccess) return answer;
    answer.then = [this, p] {
      Bytes event{kLeDataLengthChange};
      PutAll(event, p);
      PutAll(event, Part(p, 2));  // the same in the other direction
      outlet_->SendEvent(kLeMetaEvent, event);
    };
    return answer;
  });
}

}  // namespace bthal::sim
