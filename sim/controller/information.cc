#include "sim/controller/information.h"

#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr uint8_t kVersion5_3 = 0x0C;
constexpr unsigned kNoCompany = 0xFFFF;

// Buffers for data from the host.
constexpr unsigned kAclLength = 1021;
constexpr unsigned kAclBuffers = 8;
constexpr unsigned kScoLength = 64;
constexpr unsigned kScoBuffers = 8;
constexpr unsigned kLeBuffers = 8;
constexpr unsigned kIsoLength = 960;
constexpr unsigned kIsoBuffers = 8;

// A feature is claimed only if the commands that belong to it are obeyed.
enum LmpFeature {
  kThreeSlotPackets = 0,
  kFiveSlotPackets = 1,
  kEncryption = 2,
  kRoleSwitch = 5,
  kSniffMode = 7,
  kScoLink = 11,
  kInterlacedInquiryScan = 28,
  kInterlacedPageScan = 29,
  kRssiWithInquiryResults = 30,
  kAfhCapablePeripheral = 35,
  kAfhClassificationPeripheral = 36,
  kLeSupported = 38,
  kAfhCapableCentral = 43,
  kAfhClassificationCentral = 44,
  kExtendedInquiryResponse = 48,
  kSimplePairing = 51,
  kEncapsulatedPackets = 52,
  kErroneousDataReporting = 53,
  kInquiryTransmitPower = 57,
  kExtendedFeatures = 63,
};

enum LeFeature {
  kLeEncryption = 0,
  kParametersRequest = 1,
  kExtendedReject = 2,
  kDataLengthExtension = 5,
  kPrivacy = 6,
  kTwoMegabit = 8,
  kCoded = 11,
  kExtendedAdvertising = 12,
  kChannelSelection2 = 14,
};

Bytes Mask(std::initializer_list<int> bits) {
  Bytes mask(8, 0);
  for (const int bit : bits) mask[static_cast<size_t>(bit / 8)] |= static_cast<uint8_t>(1u << bit % 8);
  return mask;
}

Bytes LmpFeatures() {
  return Mask({kThreeSlotPackets,
               kFiveSlotPackets,
               kEncryption,
               kRoleSwitch,
               kSniffMode,
               kScoLink,
               kInterlacedInquiryScan,
               kInterlacedPageScan,
               kRssiWithInquiryResults,
               kAfhCapablePeripheral,
               kAfhClassificationPeripheral,
               kLeSupported,
               kAfhCapableCentral,
               kAfhClassificationCentral,
               kExtendedInquiryResponse,
               kSimplePairing,
               kEncapsulatedPackets,
               kErroneousDataReporting,
               kInquiryTransmitPower,
               kExtendedFeatures});
}

Bytes LeFeatures() {
  return Mask({kLeEncryption, kParametersRequest, kExtendedReject, kDataLengthExtension, kPrivacy, kTwoMegabit, kCoded,
               kExtendedAdvertising, kChannelSelection2});
}

Answer With(const Bytes& parameters) {
  Bytes answer{kSuccess};
  PutAll(answer, parameters);
  return Answer::Complete(answer);
}

Answer Version(const Identity& identity) {
  Bytes answer{kSuccess, kVersion5_3};
  Put16(answer, identity.build);
  Put8(answer, kVersion5_3);
  Put16(answer, kNoCompany);
  Put16(answer, identity.chip_id);
  return Answer::Complete(answer);
}

//   status | page | last page | features
Answer ExtendedFeatures(uint8_t page, const Settings& settings) {
  constexpr uint8_t kLastPage = 1;
  Bytes answer{kSuccess, page, kLastPage};
  // What the host says it supports: simple pairing, and LE.
  const unsigned host =
      settings.Value(kWriteSimplePairingMode)[0] | static_cast<unsigned>(settings.Value(kWriteLeHostSupport)[0]) << 1;
  PutAll(answer, page == 0 ? LmpFeatures() : Bytes{static_cast<uint8_t>(host), 0, 0, 0, 0, 0, 0, 0});
  return Answer::Complete(answer);
}

Answer BufferSize() {
  Bytes answer{kSuccess};
  Put16(answer, kAclLength);
  Put8(answer, kScoLength);
  Put16(answer, kAclBuffers);
  Put16(answer, kScoBuffers);
  return Answer::Complete(answer);
}

Answer LeBufferSize(bool with_iso) {
  Bytes answer{kSuccess};
  Put16(answer, kLeDataLength);
  Put8(answer, kLeBuffers);
  if (with_iso) {
    Put16(answer, kIsoLength);
    Put8(answer, kIsoBuffers);
  }
  return Answer::Complete(answer);
}

Answer LeLongestData() {
  constexpr unsigned kMicroseconds = 2120;
  Bytes answer{kSuccess};
  for (int way = 0; way < 2; ++way) {
    Put16(answer, kLeDataLength);
    Put16(answer, kMicroseconds);
  }
  return Answer::Complete(answer);
}

}  // namespace

void AddInformation(CommandTable* table, const Identity* identity, const Settings* settings) {
  constexpr uint8_t kAllButFrance = 0x00;
  // CVSD and transparent, and none of the maker's own.
  static const Bytes codecs{2, 0x02, 0x03, 0};
  table->Add(kReadLocalVersion, {14, 3}, {}, [identity](const Bytes&) { return Version(*identity); });
  table->Add(kReadLocalCommands, {14, 4}, {}, [table](const Bytes&) { return With(table->supported()); });
  table->Add(kReadLocalFeatures, {14, 5}, {}, [](const Bytes&) { return With(LmpFeatures()); });
  table->Add(kReadLocalExtendedFeatures, {14, 6}, {1, {Byte(0, 0, 1)}},
             [settings](const Bytes& p) { return ExtendedFeatures(p[0], *settings); });
  table->Add(kReadBufferSize, {14, 7}, {}, [](const Bytes&) { return BufferSize(); });
  table->Add(kReadCountryCode, {15, 0}, {}, [](const Bytes&) { return With({kAllButFrance}); });
  table->Add(kReadLocalCodecs, {29, 5}, {}, [](const Bytes&) { return With(codecs); });
  table->Add(kReadBdAddr, {15, 1}, {}, [identity](const Bytes&) { return With(identity->address); });
}

void AddLeInformation(CommandTable* table) {
  // All that there are, in any combination.
  static const Bytes states{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x03, 0x00, 0x00};
  // From -20 to 10 dBm.
  static const Bytes transmit_power{0xEC, 0x0A};
  table->Add(kLeReadBufferSize, {25, 1}, {}, [](const Bytes&) { return LeBufferSize(false); });
  table->Add(kLeReadBufferSizeV2, {41, 5}, {}, [](const Bytes&) { return LeBufferSize(true); });
  table->Add(kLeReadLocalFeatures, {25, 2}, {}, [](const Bytes&) { return With(LeFeatures()); });
  table->Add(kLeReadSupportedStates, {28, 3}, {}, [](const Bytes&) { return With(states); });
  table->Add(kLeReadMaximumDataLength, {35, 3}, {}, [](const Bytes&) { return LeLongestData(); });
  table->Add(kLeReadTransmitPower, {38, 7}, {}, [](const Bytes&) { return With(transmit_power); });
}

}  // namespace bthal::sim
