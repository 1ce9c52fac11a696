#include "sim/controller/link/link_commands.h"

#include <chrono>
#include <utility>

#include "sim/controller/opcodes.h"
#include "sim/controller/timing.h"

namespace bthal::sim {
namespace {

constexpr uint8_t kPeerVersion = 0x0C;
constexpr uint16_t kNoCompany = 0xFFFF;
constexpr uint8_t kOneMegabit = 1;
constexpr size_t kFeaturesSize = 8;

// A low-energy neighbour can encrypt, lengthen data packets and nothing else.
const Bytes& PeerLeFeatures() {
  static const auto& features = *new Bytes{0x21, 0, 0, 0, 0, 0, 0, 0};
  return features;
}

// A classic one, by page: it can encrypt and pair simply, and its host wants that.
Bytes PeerFeatures(uint8_t page) {
  if (page == 0) return {0x04, 0, 0, 0, 0, 0, 0x08, 0x80};
  Bytes features(kFeaturesSize, 0);
  if (page == 1) features[0] = 0x01;
  return features;
}

//   handle | times
bool UpdateFits(const Bytes& parameters) { return ConnectionTimesFit(&parameters[2]); }

//   handle | wish | how to code
bool PhyFits(const Bytes& parameters) { return PhyWishFits(&parameters[2]); }

}  // namespace

void LinkCommands::AddTo(CommandTable* table) {
  AddQuestions(table);
  AddQuestionsToPeer(table);
  AddLe(table);
  AddLeTimes(table);
  AddPolicy(table);
  AddModes(table);
  AddRoles(table);
}

void LinkCommands::AddQuestions(CommandTable* table) {
  constexpr uint8_t kMinus50 = 0xCE;
  constexpr uint8_t kBest = 0xFF;
  static const Bytes le_channels{0xFF, 0xFF, 0xFF, 0xFF, 0x1F};
  // Hopping adapts, and every channel is good.
  static const Bytes channels{1, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F};
  table->Add(kReadRssi, {15, 5}, {2}, [this](const Bytes& p) { return links_->OfLink(p, {kMinus50}); });
  table->Add(kReadLinkQuality, {15, 4}, {2}, [this](const Bytes& p) { return links_->OfLink(p, {kBest}); });
  table->Add(kReadAfhChannelMap, {15, 6}, {2}, [this](const Bytes& p) { return links_->OfLink(p, channels); });
  table->Add(kReadTransmitPowerLevel, {10, 2}, {3, {Flag(2)}}, [this](const Bytes& p) {
    constexpr uint8_t kNow = 0;
    constexpr uint8_t kMost = 10;
    return links_->OfLink(p, {p[2] == 0 ? kNow : kMost});
  });
  table->Add(kReadClock, {15, 7}, {3, {Flag(2)}}, [this](const Bytes& p) { return Clock(p); });
  table->Add(kLeReadChannelMap, {27, 4}, {2}, [this](const Bytes& p) { return links_->OfLink(p, le_channels); });
  table->Add(kLeReadPhy, {35, 4}, {2}, [this](const Bytes& p) {
    return links_->OfLink(p, {kOneMegabit, kOneMegabit});
  });
}

//   status | handle | clock, 32 bits | accuracy, 16 bits; the controller's own belongs to no link
Answer LinkCommands::Clock(const Bytes& parameters) {
  constexpr auto kTick = std::chrono::nanoseconds(312500);
  constexpr uint32_t kClockMask = 0x0FFFFFFF;
  const auto since = std::chrono::steady_clock::now().time_since_epoch();
  Bytes clock;
  Put32(clock, static_cast<uint32_t>(since / kTick) & kClockMask);
  Put16(clock, 0);
  if (parameters[2] != 0) return links_->OfLink(parameters, clock);
  Bytes answer{kSuccess, parameters[0], parameters[1]};
  PutAll(answer, clock);
  return Answer::Complete(answer);
}

void LinkCommands::AddQuestionsToPeer(CommandTable* table) {
  //   [sub-event |] status | handle | what is told
  auto add = [&](uint16_t opcode, MaskBit listed, uint8_t code, const Bytes& head, const Bytes& told) {
    table->AddByStatus(opcode, listed, {2}, [this, code, head, told](const Bytes& p) {
      return links_->ForLink(p, [this, code, head, told](const Link& link, const Bytes&) {
        Bytes event = head;
        Put8(event, kSuccess);
        Put16(event, link.handle);
        PutAll(event, told);
        outlet_->SendEvent(code, event);
      });
    });
  };
  Bytes version{kPeerVersion};
  Put16(version, kNoCompany);
  Put16(version, 0);
  add(kReadRemoteFeatures, {2, 5}, kRemoteFeaturesEvent, {}, PeerFeatures(0));
  add(kReadRemoteVersion, {2, 7}, kRemoteVersionEvent, {}, version);
  add(kReadClockOffset, {3, 0}, kClockOffsetEvent, {}, {0, 0});
  add(kLeReadRemoteFeatures, {27, 5}, kLeMetaEvent, {kLeRemoteFeaturesComplete}, PeerLeFeatures());
  //   status | handle | page | last page | features
  table->AddByStatus(kReadRemoteExtendedFeatures, {2, 6}, {3}, [this](const Bytes& p) {
    return links_->ForLink(p, [this](const Link& link, const Bytes& asked) {
      constexpr uint8_t kLastPage = 1;
      Bytes event{kSuccess};
      Put16(event, link.handle);
      PutAll(event, {asked[2], kLastPage});
      PutAll(event, PeerFeatures(asked[2]));
      outlet_->SendEvent(kRemoteExtendedFeaturesEvent, event);
    });
  });
  //   handle | packet types
  table->AddByStatus(kChangePacketType, {1, 6}, {4}, [this](const Bytes& p) {
    return links_->ForLink(p, [this](const Link&, const Bytes& asked) {
      Bytes event{kSuccess};
      PutAll(event, asked);
      outlet_->SendEvent(kPacketTypeEvent, event);
    });
  });
}

void LinkCommands::AddLe(CommandTable* table) {
  table->AddByStatus(kLeSetPhy, {35, 6}, {7, {Word(5, 0, 2)}, PhyFits}, [this](const Bytes& p) {
    return links_->ForLink(p, [this](const Link& link, const Bytes&) {
      Bytes event{kLePhyUpdateComplete, kSuccess};
      Put16(event, link.handle);
      PutAll(event, {kOneMegabit, kOneMegabit});
      outlet_->SendEvent(kLeMetaEvent, event);
    });
  });
  table->Add(kLeSetDataLength, {33, 6}, {6, {DataOctets(2), DataTime(4)}}, [this](const Bytes& p) {
    Answer answer = links_->OfLink(p, {});
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

//   sub-event | status | handle | interval | latency | timeout
void LinkCommands::AddLeTimes(CommandTable* table) {
  auto update = [this](const Link& link, const Bytes& asked) {
    // The longest interval asked for, latency and timeout as asked for.
    Bytes event{kLeConnectionUpdateComplete, kSuccess};
    Put16(event, link.handle);
    PutAll(event, Part(asked, 4, 6));
    outlet_->SendEvent(kLeMetaEvent, event);
  };
  table->AddByStatus(kLeConnectionUpdate, {27, 2}, {14, {}, UpdateFits},
                     [this, update](const Bytes& p) { return links_->ForLink(p, update); });
  // What the host says to the times that a peer has asked for.
  auto reply = [this](const Bytes& p, std::function<void(const Link&)> then) {
    Answer answer = links_->OfLink(p, {});
    Link* const link = links_->Find(GetLe16(p.data()));
    if (link == nullptr) return answer;
    if (!std::exchange(link->asked_for_times, false)) {
      answer.parameters[0] = kCommandDisallowed;
    } else if (then) {
      answer.then = [link = *link, then = std::move(then)] { then(link); };
    }
    return answer;
  };
  table->Add(kLeRemoteParametersReply, {33, 4}, {14, {}, UpdateFits},
             [reply, update](const Bytes& p) { return reply(p, [update, p](const Link& link) { update(link, p); }); });
  table->Add(kLeRemoteParametersNegativeReply, {33, 5}, {3}, [reply](const Bytes& p) { return reply(p, {}); });
}

}  // namespace bthal::sim
