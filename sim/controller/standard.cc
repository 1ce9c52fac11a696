#include "sim/controller/standard.h"

#include <bit>
#include <random>

namespace bthal::sim {
namespace {

constexpr uint8_t kVersion5_3 = 0x0C;
constexpr unsigned kNoCompany = 0xFFFF;
constexpr size_t kNameSize = 248;

// LMP features: 3-slot and 5-slot packets, role switch, sniff mode, SCO links, RSSI with inquiry results, extended
// inquiry, LE, secure simple pairing, extended features.
constexpr uint8_t kLmpFeatures[8] = {0xA7, 0x08, 0x00, 0x40, 0x40, 0x00, 0x09, 0x80};
// LE features: extended reject, data length extension, privacy, 2M PHY, coded PHY, extended advertising.
constexpr uint8_t kLeFeatures[8] = {0x64, 0x19, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};

// A value that one command writes and another reads back, or that is only written.
struct Setting {
  uint16_t write;
  int write_octet, write_bit;
  uint16_t read;  // 0: cannot be read
  int read_octet, read_bit;
  Bytes initial;
};

const std::vector<Setting>& Settings() {
  constexpr int kNoBit = CommandTable::kNoBit;
  static const auto& settings = *new std::vector<Setting>{
      {0x080F, 5, 4, 0x080E, 5, 3, {0, 0}},                             // default link policy
      {0x0C01, 5, 6, 0, kNoBit, 0, Bytes(8, 0xFF)},                     // event mask
      {0x0C16, 7, 3, 0x0C15, 7, 2, {0xA0, 0x1F}},                       // connection accept timeout
      {0x0C18, 7, 5, 0x0C17, 7, 4, {0x00, 0x20}},                       // page timeout
      {0x0C1A, 7, 7, 0x0C19, 7, 6, {0}},                                // scan enable
      {0x0C1C, 8, 1, 0x0C1B, 8, 0, {0x00, 0x08, 0x12, 0x00}},           // page scan activity
      {0x0C1E, 8, 3, 0x0C1D, 8, 2, {0x00, 0x10, 0x12, 0x00}},           // inquiry scan activity
      {0x0C20, 8, 5, 0x0C1F, 8, 4, {0}},                                // authentication enable
      {0x0C24, 9, 1, 0x0C23, 9, 0, {0, 0, 0}},                          // class of device
      {0x0C26, 9, 3, 0x0C25, 9, 2, {0x60, 0x00}},                       // voice setting
      {0x0C2F, 10, 4, 0x0C2E, 10, 3, {0}},                              // synchronous flow control
      {0x0C31, 10, 5, 0, kNoBit, 0, {0}},                               // controller to host flow control
      {0x0C33, 10, 6, 0, kNoBit, 0, Bytes(7, 0)},                       // host buffer size
      {0x0C43, 12, 5, 0x0C42, 12, 4, {0}},                              // inquiry scan type
      {0x0C45, 12, 7, 0x0C44, 12, 6, {0}},                              // inquiry mode
      {0x0C47, 13, 1, 0x0C46, 13, 0, {0}},                              // page scan type
      {0x0C49, 13, 3, 0x0C48, 13, 2, {1}},                              // AFH channel assessment
      {0x0C52, 17, 1, 0x0C51, 17, 0, Bytes(241, 0)},                    // extended inquiry response
      {0x0C56, 17, 6, 0x0C55, 17, 5, {0}},                              // simple pairing mode
      {0x0C59, 18, 1, 0x0C58, 18, 0, {0}},                              // inquiry transmit power
      {0x0C5B, 18, 3, 0x0C5A, 18, 2, {0}},                              // erroneous data reporting
      {0x0C63, 22, 2, 0, kNoBit, 0, Bytes(8, 0)},                       // event mask, second page
      {0x0C6D, 24, 6, 0x0C6C, 24, 5, {0, 0}},                           // LE host support
      {0x0C7A, 32, 3, 0x0C79, 32, 2, {0}},                              // secure connections
      {0x2001, 25, 0, 0, kNoBit, 0, Bytes{0x1F, 0, 0, 0, 0, 0, 0, 0}},  // LE event mask
      {0x2024, 34, 0, 0x2023, 33, 7, {0x1B, 0x00, 0x48, 0x01}},         // suggested data length
      {0x202D, 35, 1, 0, kNoBit, 0, {0}},                               // address resolution
      {0x202E, 35, 2, 0, kNoBit, 0, {0x84, 0x03}},                      // resolvable address timeout
      {0x2031, 35, 5, 0, kNoBit, 0, {0, 0, 0}},                         // default PHY
      {0x2074, 44, 1, 0, kNoBit, 0, {0, 0}},                            // LE host feature
  };
  return settings;
}

Answer With(uint8_t status, const uint8_t* bytes, size_t count) {
  Bytes answer{status};
  answer.insert(answer.end(), bytes, bytes + count);
  return Answer::Complete(answer);
}

}  // namespace

void StandardCommands::AddTo(CommandTable* table) {
  Reset();
  AddInformation(table);
  AddSettings(table);
  AddHostControl(table);
  AddLeInformation(table);
}

void StandardCommands::Reset() {
  for (const Setting& setting : Settings()) settings_[setting.write] = setting.initial;
}

void StandardCommands::AddSettings(CommandTable* table) {
  for (const Setting& setting : Settings()) {
    table->Add(setting.write, setting.initial.size(), setting.write_octet, setting.write_bit,
               [this, write = setting.write](const Bytes& value) {
                 settings_[write] = value;
                 return Answer::Complete({kSuccess});
               });
    if (setting.read == 0) continue;
    table->Add(setting.read, 0, setting.read_octet, setting.read_bit, [this, write = setting.write](const Bytes&) {
      const Bytes& value = settings_[write];
      return With(kSuccess, value.data(), value.size());
    });
  }
}

void StandardCommands::AddInformation(CommandTable* table) {
  table->Add(0x1001, 0, 14, 3, [this](const Bytes&) {  // local version
    Bytes answer{kSuccess, kVersion5_3};
    Put16(answer, identity_->build);
    Put8(answer, kVersion5_3);
    Put16(answer, kNoCompany);
    Put16(answer, identity_->chip_id);
    return Answer::Complete(answer);
  });
  table->Add(0x1002, 0, CommandTable::kNoBit, 0, [this](const Bytes&) {  // supported commands
    return With(kSuccess, table_->supported().data(), table_->supported().size());
  });
  table->Add(0x1003, 0, 14, 5, [](const Bytes&) { return With(kSuccess, kLmpFeatures, sizeof(kLmpFeatures)); });
  table->Add(0x1004, 1, 14, 6, [this](const Bytes& p) { return ReadExtendedFeatures(p); });
  table->Add(0x1005, 0, 14, 7, [](const Bytes&) {  // buffer sizes
    Bytes answer{kSuccess};
    Put16(answer, kAclLength);
    Put8(answer, kScoLength);
    Put16(answer, kAclBuffers);
    Put16(answer, kScoBuffers);
    return Answer::Complete(answer);
  });
  table->Add(0x1009, 0, 15, 1,
             [this](const Bytes&) { return With(kSuccess, identity_->address.data(), identity_->address.size()); });
}

//   status | page | last page | features
Answer StandardCommands::ReadExtendedFeatures(const Bytes& parameters) const {
  constexpr uint8_t kLastPage = 1;
  if (parameters[0] > kLastPage) return Answer::Complete({kInvalidParameters});
  Bytes answer{kSuccess, parameters[0], kLastPage};
  if (parameters[0] == 0) {
    answer.insert(answer.end(), std::begin(kLmpFeatures), std::end(kLmpFeatures));
    return Answer::Complete(answer);
  }
  // What the host says it supports: simple pairing and LE.
  const unsigned simple_pairing = settings_.at(0x0C56)[0];
  const unsigned le = settings_.at(0x0C6D)[0];
  Put8(answer, (simple_pairing & 1) | (le & 1) << 1);
  answer.resize(answer.size() + 7);
  return Answer::Complete(answer);
}

Answer StandardCommands::LocalName() const {
  Bytes answer{kSuccess};
  answer.insert(answer.end(), identity_->name.begin(), identity_->name.end());
  answer.resize(1 + kNameSize);
  return Answer::Complete(answer);
}

// A map of 79 channels, at least 20 of which must stay in use.
Answer StandardCommands::ClassifyChannels(const Bytes& parameters) {
  constexpr int kLeastChannels = 20;
  int channels = 0;
  for (const uint8_t byte : parameters) channels += std::popcount(byte);
  return Answer::Complete({channels < kLeastChannels ? kInvalidParameters : kSuccess});
}

void StandardCommands::AddHostControl(CommandTable* table) {
  table->AddOfAnyLength(0x0C05, 1, 6, 0, [](const Bytes&) { return Answer(); });  // event filter
  table->Add(0x0C0D, 7, 6, 5, [](const Bytes&) {                                  // stored link keys: none, and no room
    return Answer::Complete({kSuccess, 0, 0, 0, 0});
  });
  table->Add(0x0C12, 7, 6, 7, [](const Bytes&) { return Answer::Complete({kSuccess, 0, 0}); });
  table->Add(0x0C13, kNameSize, 7, 0, [this](const Bytes& name) {
    identity_->name = std::string(name.begin(), name.end()).c_str();
    return Answer();
  });
  table->Add(0x0C14, 0, 7, 1, [this](const Bytes&) { return LocalName(); });
  table->AddOfAnyLength(0x0C35, 1, 10, 7, [](const Bytes&) { return Answer::None(); });  // host's completed packets
  table->Add(0x0C38, 0, 11, 2, [](const Bytes&) { return Answer::Complete({kSuccess, 1}); });
  table->AddOfAnyLength(0x0C3A, 4, 11, 4, [](const Bytes&) { return Answer(); });  // inquiry access codes
  table->Add(0x0C3F, 10, 12, 1, [this](const Bytes& p) { return ClassifyChannels(p); });
}

void StandardCommands::AddLeInformation(CommandTable* table) {
  table->Add(0x2002, 0, 25, 1, [](const Bytes&) {  // LE buffer size
    Bytes answer{kSuccess};
    Put16(answer, kLeLength);
    Put8(answer, kLeBuffers);
    return Answer::Complete(answer);
  });
  table->Add(0x2060, 0, 41, 5, [](const Bytes&) {  // the same, and that of ISO data
    Bytes answer{kSuccess};
    Put16(answer, kLeLength);
    Put8(answer, kLeBuffers);
    Put16(answer, kIsoLength);
    Put8(answer, kIsoBuffers);
    return Answer::Complete(answer);
  });
  table->Add(0x2003, 0, 25, 2, [](const Bytes&) { return With(kSuccess, kLeFeatures, sizeof(kLeFeatures)); });
  table->Add(0x2018, 0, 27, 7, [](const Bytes&) {  // a random number
    static auto& device = *new std::random_device;
    Bytes answer{kSuccess};
    Put32(answer, device());
    Put32(answer, device());
    return Answer::Complete(answer);
  });
  table->Add(0x201C, 0, 28, 3, [](const Bytes&) {  // states: all that involve one role at a time
    constexpr uint8_t kStates[8] = {0xFF, 0xFF, 0x0F, 0x00, 0x00, 0x00, 0x00, 0x00};
    return With(kSuccess, kStates, sizeof(kStates));
  });
  table->Add(0x202F, 0, 35, 3, [](const Bytes&) {  // longest data: 251 bytes, 2120 us, both ways
    Bytes answer{kSuccess};
    for (int way = 0; way < 2; ++way) {
      Put16(answer, kLeLength);
      Put16(answer, 2120);
    }
    return Answer::Complete(answer);
  });
  table->Add(0x204B, 0, 38, 7, [](const Bytes&) {  // transmit power: -20 to 10 dBm
    return Answer::Complete({kSuccess, 0xEC, 0x0A});
  });
}

}  // namespace bthal::sim
