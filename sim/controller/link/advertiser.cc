#include "sim/controller/link/advertiser.h"

#include <algorithm>

#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr uint8_t kMostSets = 16;
constexpr uint32_t kLastHandle = 0xEF;
constexpr uint32_t kShortestInterval = 0x20;
constexpr unsigned kLongestData = 251;

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

void Advertiser::AddTo(CommandTable* table) {
  AddLegacy(table);
  AddExtended(table);
  AddSets(table);
}

void Advertiser::AddLegacy(CommandTable* table) {
  table->Add(kLeSetRandomAddress, {25, 4}, {6}, Ok);
  table->Add(kLeSetAdvertisingParameters, {25, 5},
             {15, {Byte(4, 0, 4), Byte(5, 0, 3), Flag(6), Byte(13, 1, 7), Byte(14, 0, 3)}, ParametersFit}, Ok);
  table->Add(kLeReadAdvertisingPower, {25, 6}, {}, [](const Bytes&) { return Answer::Complete({kSuccess, 0x00}); });
  table->Add(kLeSetAdvertisingData, {25, 7}, {32, {Byte(0, 0, 31)}}, Ok);
  table->Add(kLeSetScanResponseData, {26, 0}, {32, {Byte(0, 0, 31)}}, Ok);
  table->Add(kLeSetAdvertisingEnable, {26, 1}, {1, {Flag(0)}}, Ok);
}

void Advertiser::AddExtended(CommandTable* table) {
  constexpr Range kHandle = Byte(0, 0, kLastHandle);
  auto for_set = [this](const Bytes& p) { return ForSet(p[0]); };
  table->Add(kLeSetAdvertisingSetAddress, {36, 1}, {7, {kHandle}}, for_set);
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
    sets_.erase(p[0]);
    return answer;
  });
  table->Add(kLeClearAdvertisingSets, {37, 1}, {}, [this](const Bytes&) {
    sets_.clear();
    return Answer();
  });
}

// Answers with the power that will be used.
Answer Advertiser::SetParameters(const Bytes& parameters) {
  if (sets_.size() == kMostSets && sets_.count(parameters[0]) == 0) return Answer::Complete({kMemoryExceeded});
  sets_.insert(parameters[0]);
  return Answer::Complete({kSuccess, 0x00});
}

Answer Advertiser::ForSet(uint8_t handle) const {
  return Answer::Complete({sets_.count(handle) == 0 ? kUnknownAdvertisingSet : kSuccess});
}

Answer Advertiser::Enable(const Bytes& parameters) const {
  for (size_t at = 2; at < parameters.size(); at += 4) {
    if (sets_.count(parameters[at]) == 0) return Answer::Complete({kUnknownAdvertisingSet});
  }
  return {};
}

}  // namespace bthal::sim
