#include "sim/controller/link/advertiser.h"

#include <algorithm>

#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr uint8_t kMostSets = 16;
constexpr uint32_t kLastHandle = 0xEF;
constexpr uint32_t kShortestInterval = 0x20;
constexpr unsigned kLongestData = 251;
constexpr size_t kAddressSize = 6;
constexpr auto kHeardIn = std::chrono::milliseconds(20);

Answer Ok(const Bytes& /*parameters*/) { return {}; }

//   least and greatest interval, 16 bits each | type | own address type | peer address type | peer | channels | filter
bool ParametersFit(const Bytes& parameters) {
  constexpr unsigned kLongestInterval = 0x4000;
  constexpr uint8_t kDirectedAtOnce = 1;
  const unsigned least = GetLe16(parameters.data());
  const unsigned greatest = GetLe16(&parameters[2]);
  return parameters[4] == kDirectedAtOnce ||
         (least >= kShortestInterval && least <= greatest && greatest <= kLongestInterval);
}

uint32_t GetLe24(const uint8_t* at) { return GetLe16(at) | static_cast<uint32_t>(at[2]) << 16; }

//   handle | properties, 16 bits | least and greatest interval, 24 bits each | channels | own address type |
//   peer address type | peer | filter | power | primary layer | skip | secondary layer | identifier | notify
bool ExtendedParametersFit(const Bytes& parameters) {
  constexpr unsigned kConnectableAndScannable = 0x03;
  constexpr unsigned kLegacy = 0x10;
  constexpr unsigned kLegacyKinds[] = {0x10, 0x12, 0x13, 0x15, 0x1D};
  constexpr uint8_t kTwoMegabit = 2;
  const unsigned properties = GetLe16(&parameters[1]);
  const bool properties_fit =
      (properties & kLegacy) != 0
          ? std::find(std::begin(kLegacyKinds), std::end(kLegacyKinds), properties) != std::end(kLegacyKinds)
          : (properties & kConnectableAndScannable) != kConnectableAndScannable;
  return properties_fit && GetLe24(&parameters[3]) <= GetLe24(&parameters[6]) && parameters[20] != kTwoMegabit;
}

//   handle | operation | fragmentation | length | data
bool DataFits(const Bytes& parameters) { return parameters.size() == 4u + parameters[3]; }

//   enable | count | of each set: handle | duration, 16 bits | most events
bool EnableFits(const Bytes& parameters) {
  return parameters.size() == 2u + 4u * parameters[1] && (parameters[0] == 0 || parameters[1] != 0);
}

}  // namespace

void Advertiser::Reset() {
  legacy_ = {};
  sets_.clear();
}

void Advertiser::AddTo(CommandTable* table) {
  AddLegacy(table);
  AddExtended(table);
  AddSets(table);
}

void Advertiser::AddLegacy(CommandTable* table) {
  table->Add(kLeSetRandomAddress, {25, 4}, {kAddressSize}, [this](const Bytes& p) {
    if (legacy_.run != 0) return Answer::Complete({kCommandDisallowed});
    connections_->SetRandomAddress(p);
    return Answer();
  });
  table->Add(kLeSetAdvertisingParameters, {25, 5},
             {15, {Byte(4, 0, 4), Byte(5, 0, 3), Flag(6), Byte(13, 1, 7), Byte(14, 0, 3)}, ParametersFit},
             [this](const Bytes& p) {
               if (legacy_.run != 0) return Answer::Complete({kCommandDisallowed});
               SetLegacyParameters(p);
               return Answer();
             });
  table->Add(kLeReadAdvertisingPower, {25, 6}, {}, [](const Bytes&) { return Answer::Complete({kSuccess, 0x00}); });
  table->Add(kLeSetAdvertisingData, {25, 7}, {32, {Byte(0, 0, 31)}}, Ok);
  table->Add(kLeSetScanResponseData, {26, 0}, {32, {Byte(0, 0, 31)}}, Ok);
  table->Add(kLeSetAdvertisingEnable, {26, 1}, {1, {Flag(0)}}, [this](const Bytes& p) {
    Answer answer;
    if (p[0] != 0 && legacy_.run == 0) answer.then = [this] { Start(&legacy_); };
    legacy_.run = 0;
    return answer;
  });
}

void Advertiser::SetLegacyParameters(const Bytes& parameters) {
  constexpr uint8_t kAnybody = 0;
  constexpr uint8_t kDirected = 1;
  constexpr uint8_t kDirectedSlowly = 4;
  constexpr uint8_t kConnectAccepted = 2;  // or both scan and connect
  const uint8_t type = parameters[4];
  const bool directed = type == kDirected || type == kDirectedSlowly;
  legacy_.connectable = type == kAnybody || directed;
  legacy_.advertised = {{},
                        parameters[5],
                        {},
                        !directed && parameters[14] >= kConnectAccepted,
                        directed ? Part(parameters, 7, kAddressSize) : Bytes{}};
}

void Advertiser::AddExtended(CommandTable* table) {
  constexpr Range kHandle = Byte(0, 0, kLastHandle);
  auto for_set = [this](const Bytes& p) { return ForSet(p[0]); };
  table->Add(kLeSetAdvertisingSetAddress, {36, 1}, {7, {kHandle}}, [this](const Bytes& p) { return SetAddress(p); });
  table->Add(kLeSetExtendedAdvertisingParameters, {36, 2},
             {25,
              {kHandle,
               Word(1, 0, 0x7F),
               {3, 3, kShortestInterval, 0xFFFFFF},
               Byte(9, 1, 7),
               Byte(10, 0, 3),
               Flag(11),
               Byte(18, 0, 3),
               Byte(20, 1, 3),
               Byte(22, 1, 3),
               Byte(23, 0, 0x0F),
               Flag(24)},
              ExtendedParametersFit},
             [this](const Bytes& p) { return SetParameters(p); });
  table->Add(kLeSetExtendedAdvertisingData, {36, 3},
             {4, {kHandle, Byte(1, 0, 4), Flag(2), Byte(3, 0, kLongestData)}, DataFits, true}, for_set);
  table->Add(kLeSetExtendedScanResponseData, {36, 4},
             {4, {kHandle, Byte(1, 0, 3), Flag(2), Byte(3, 0, kLongestData)}, DataFits, true}, for_set);
  table->Add(kLeSetExtendedAdvertisingEnable, {36, 5}, {2, {Flag(0)}, EnableFits, true},
             [this](const Bytes& p) { return Enable(p); });
}

void Advertiser::AddSets(CommandTable* table) {
  table->Add(kLeReadMaximumAdvertisingDataLength, {36, 6}, {}, [](const Bytes&) {
    Bytes answer{kSuccess};
    Put16(answer, kLongestData);
    return Answer::Complete(answer);
  });
  table->Add(kLeReadNumberOfAdvertisingSets, {36, 7}, {}, [](const Bytes&) {
    return Answer::Complete({kSuccess, kMostSets});
  });
  table->Add(kLeRemoveAdvertisingSet, {37, 0}, {1, {Byte(0, 0, kLastHandle)}}, [this](const Bytes& p) {
    Answer answer = ForSet(p[0]);
    if (answer.parameters[0] == kSuccess && sets_[p[0]].run != 0) return Answer::Complete({kCommandDisallowed});
    sets_.erase(p[0]);
    return answer;
  });
  table->Add(kLeClearAdvertisingSets, {37, 1}, {}, [this](const Bytes&) {
    const bool any = std::any_of(sets_.begin(), sets_.end(), [](const auto& set) { return set.second.run != 0; });
    if (any) return Answer::Complete({kCommandDisallowed});
    sets_.clear();
    return Answer();
  });
}

// Answers with the power that will be used.
Answer Advertiser::SetParameters(const Bytes& parameters) {
  constexpr uint8_t kConnectable = 0x01;
  constexpr uint8_t kDirected = 0x04;
  constexpr uint8_t kConnectAccepted = 2;
  const uint8_t handle = parameters[0];
  if (sets_.size() == kMostSets && sets_.count(handle) == 0) return Answer::Complete({kMemoryExceeded});
  Set& set = sets_[handle];
  if (set.run != 0) return Answer::Complete({kCommandDisallowed});
  const bool directed = (parameters[1] & kDirected) != 0;
  set.connectable = (parameters[1] & kConnectable) != 0;
  set.advertised = {handle, parameters[10], set.advertised.own_address, !directed && parameters[18] >= kConnectAccepted,
                    directed ? Part(parameters, 12, kAddressSize) : Bytes{}};
  return Answer::Complete({kSuccess, 0x00});
}

Answer Advertiser::SetAddress(const Bytes& parameters) {
  const auto found = sets_.find(parameters[0]);
  if (found == sets_.end()) return Answer::Complete({kUnknownAdvertisingSet});
  if (found->second.run != 0 && found->second.connectable) return Answer::Complete({kCommandDisallowed});
  found->second.advertised.own_address = Part(parameters, 1);
  return {};
}

Answer Advertiser::ForSet(uint8_t handle) const {
  return Answer::Complete({sets_.count(handle) == 0 ? kUnknownAdvertisingSet : kSuccess});
}

// Without handles all sets are switched off.
Answer Advertiser::Enable(const Bytes& parameters) {
  const bool on = parameters[0] != 0;
  std::vector<uint8_t> handles;
  for (size_t at = 2; at < parameters.size(); at += 4) handles.push_back(parameters[at]);
  if (handles.empty()) {
    for (const auto& [handle, set] : sets_) handles.push_back(handle);
  }
  for (const uint8_t handle : handles) {
    if (sets_.count(handle) == 0) return Answer::Complete({kUnknownAdvertisingSet});
  }
  Answer answer;
  if (!on) {
    for (const uint8_t handle : handles) sets_[handle].run = 0;
  } else {
    answer.then = [this, parameters] {
      for (size_t at = 2; at < parameters.size(); at += 4) {
        Set* const set = &sets_[parameters[at]];
        Start(set);
        const unsigned duration = GetLe16(&parameters[at + 1]);
        if (duration != 0) EndIn(set->run, std::chrono::milliseconds(duration * 10));
      }
    };
  }
  return answer;
}

void Advertiser::Start(Set* set) {
  set->run = ++runs_;
  if (!set->connectable) return;
  outlet_->timers().After(kHeardIn, [this, run = set->run] {
    Set* const heard = FindRun(run);
    if (heard == nullptr || !connections_->ConnectToHost(heard->advertised)) return;
    heard->run = 0;
  });
}

//   sub-event | status | set | handle, 16 bits | events
void Advertiser::EndIn(uint64_t run, Clock::duration duration) {
  outlet_->timers().After(duration, [this, run] {
    Set* const set = FindRun(run);
    if (set == nullptr) return;
    set->run = 0;
    outlet_->SendEvent(kLeMetaEvent, {kLeAdvertisingSetTerminated, kAdvertisingTimeout, *set->advertised.set, 0, 0, 0});
  });
}

Advertiser::Set* Advertiser::FindRun(uint64_t run) {
  if (legacy_.run == run) return &legacy_;
  for (auto& [handle, set] : sets_) {
    if (set.run == run) return &set;
  }
  return nullptr;
}

}  // namespace bthal::sim
