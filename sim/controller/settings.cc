#include "sim/controller/settings.h"

#include "sim/controller/opcodes.h"
#include "sim/controller/timing.h"

namespace bthal::sim {
namespace {

constexpr size_t kAccessCodeSize = 3;

// A value that one command writes and another reads back, or that is only written.
struct Setting {
  uint16_t write;
  MaskBit write_listed;
  uint16_t read;  // 0: cannot be read
  MaskBit read_listed;
  Bytes initial;
  std::vector<Range> ranges = {};
  bool (*valid)(const Bytes& value) = nullptr;
};

// How often, and how long each time, the controller listens: an even interval, and a window no longer than that.
bool ListensNoLongerThanItCan(const Bytes& value) {
  const uint16_t interval = GetLe16(value.data());
  return interval % 2 == 0 && GetLe16(&value[2]) <= interval;
}

bool DecibelsFit(const Bytes& value) {
  const auto level = static_cast<int8_t>(value[0]);
  return level >= -70 && level <= 20;
}

//   count | access codes of 24 bits
bool AccessCodesFit(const Bytes& parameters) {
  if (parameters[0] == 0 || parameters.size() != 1 + kAccessCodeSize * parameters[0]) return false;
  for (size_t at = 1; at < parameters.size(); at += kAccessCodeSize) {
    // The low bits tell them apart.
    if (parameters[at] > 0x3F || parameters[at + 1] != 0x8B || parameters[at + 2] != 0x9E) return false;
  }
  return true;
}

const std::vector<Setting>& ClassicSettings() {
  static const std::vector<Range> listening{Word(0, 0x12, 0x1000), Word(2, 0x11, 0x1000)};
  static const auto& settings = *new std::vector<Setting>{
      {kSetEventMask, {5, 6}, 0, kUnlisted, Bytes(8, 0xFF)},
      {kWriteDefaultLinkPolicy, {5, 4}, kReadDefaultLinkPolicy, {5, 3}, {0, 0}, {Word(0, 0, 0x000F)}},
      {kWriteConnectionAcceptTimeout, {7, 3}, kReadConnectionAcceptTimeout, {7, 2}, {0xA0, 0x1F}, {Word(0, 1, 0xB540)}},
      {kWritePageTimeout, {7, 5}, kReadPageTimeout, {7, 4}, {0x00, 0x20}, {Word(0, 1, 0xFFFF)}},
      {kWriteScanEnable, {7, 7}, kReadScanEnable, {7, 6}, {0}, {Byte(0, 0, 3)}},
      {kWritePageScanActivity,
       {8, 1},
       kReadPageScanActivity,
       {8, 0},
       {0x00, 0x08, 0x12, 0x00},
       listening,
       ListensNoLongerThanItCan},
      {kWriteInquiryScanActivity,
       {8, 3},
       kReadInquiryScanActivity,
       {8, 2},
       {0x00, 0x10, 0x12, 0x00},
       listening,
       ListensNoLongerThanItCan},
      {kWriteAuthenticationEnable, {8, 5}, kReadAuthenticationEnable, {8, 4}, {0}, {Flag(0)}},
      {kWriteClassOfDevice, {9, 1}, kReadClassOfDevice, {9, 0}, {0, 0, 0}},
      {kWriteVoiceSetting, {9, 3}, kReadVoiceSetting, {9, 2}, {0x60, 0x00}, {Word(0, 0, 0x3FF)}},
      {kWriteSynchronousFlowControl, {10, 4}, kReadSynchronousFlowControl, {10, 3}, {0}, {Flag(0)}},
      {kSetControllerToHostFlowControl, {10, 5}, 0, kUnlisted, {0}, {Byte(0, 0, 3)}},
      {kHostBufferSize, {10, 6}, 0, kUnlisted, Bytes(7, 0)},
      {kWriteInquiryScanType, {12, 5}, kReadInquiryScanType, {12, 4}, {0}, {Flag(0)}},
      {kWriteInquiryMode, {12, 7}, kReadInquiryMode, {12, 6}, {0}, {Byte(0, 0, 2)}},
      {kWritePageScanType, {13, 1}, kReadPageScanType, {13, 0}, {0}, {Flag(0)}},
      {kWriteAfhAssessment, {13, 3}, kReadAfhAssessment, {13, 2}, {1}, {Flag(0)}},
      {kWriteExtendedInquiryResponse, {17, 1}, kReadExtendedInquiryResponse, {17, 0}, Bytes(241, 0), {Flag(0)}},
      {kWriteSimplePairingMode, {17, 6}, kReadSimplePairingMode, {17, 5}, {0}, {Flag(0)}},
      {kWriteInquiryTransmitPower, {18, 1}, kReadInquiryTransmitPower, {18, 0}, {0}, {}, DecibelsFit},
      {kWriteErroneousDataReporting, {18, 3}, kReadErroneousDataReporting, {18, 2}, {0}, {Flag(0)}},
      {kSetEventMaskPage2, {22, 2}, 0, kUnlisted, Bytes(8, 0)},
      {kWriteLeHostSupport, {24, 6}, kReadLeHostSupport, {24, 5}, {0, 0}, {Flag(0)}},
  };
  return settings;
}

const std::vector<Setting>& LeSettings() {
  static const auto& settings = *new std::vector<Setting>{
      {kLeSetEventMask, {25, 0}, 0, kUnlisted, Bytes{0x1F, 0, 0, 0, 0, 0, 0, 0}},
      {kLeWriteSuggestedDataLength,
       {34, 0},
       kLeReadSuggestedDataLength,
       {33, 7},
       {0x1B, 0x00, 0x48, 0x01},
       {DataOctets(0), DataTime(2)}},
      {kLeSetAddressResolution, {35, 1}, 0, kUnlisted, {0}, {Flag(0)}},
      {kLeSetResolvableAddressTimeout, {35, 2}, 0, kUnlisted, {0x84, 0x03}, {Word(0, 1, 0x0E10)}},
      {kLeSetDefaultPhy,
       {35, 5},
       0,
       kUnlisted,
       {3, 0, 0},
       {},
       [](const Bytes& value) { return PhyWishFits(value.data()); }},
  };
  return settings;
}

}  // namespace

bool Settings::WantsLeEvent(uint8_t sub_event) const {
  const unsigned bit = sub_event - 1u;
  return (Value(kLeSetEventMask)[bit / 8] >> bit % 8 & 1) != 0;
}

void Settings::Reset() {
  for (const auto* settings : {&ClassicSettings(), &LeSettings()}) {
    for (const Setting& setting : *settings) values_[setting.write] = setting.initial;
  }
  values_[kWriteCurrentIac] = {0x33, 0x8B, 0x9E};
}

void Settings::AddTo(CommandTable* table) {
  AddAccessCode(table);
  for (const auto* settings : {&ClassicSettings(), &LeSettings()}) {
    for (const Setting& setting : *settings) {
      const uint16_t write = setting.write;
      table->Add(write, setting.write_listed, {setting.initial.size(), setting.ranges, setting.valid},
                 [this, write](const Bytes& value) {
                   values_[write] = value;
                   return Answer();
                 });
      if (setting.read == 0) continue;
      table->Add(setting.read, setting.read_listed, {}, [this, write](const Bytes&) {
        Bytes answer{kSuccess};
        PutAll(answer, Value(write));
        return Answer::Complete(answer);
      });
    }
  }
}

// There is room for one: the first of those that the host writes.
void Settings::AddAccessCode(CommandTable* table) {
  table->Add(kReadCurrentIac, {11, 3}, {}, [this](const Bytes&) {
    Bytes answer{kSuccess, 1};
    PutAll(answer, Value(kWriteCurrentIac));
    return Answer::Complete(answer);
  });
  table->Add(kWriteCurrentIac, {11, 4}, {1, {}, AccessCodesFit, true}, [this](const Bytes& codes) {
    values_[kWriteCurrentIac] = Part(codes, 1, kAccessCodeSize);
    return Answer();
  });
}

}  // namespace bthal::sim
