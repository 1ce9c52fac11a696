#include "sim/controller/vendor_commands.h"

#include <algorithm>

#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr uint32_t kSpeeds[] = {115200, 230400, 460800, 921600, 1000000, 2000000, 3000000, 4000000, 6000000};

bool SpeedFits(const Bytes& parameters) {
  return std::find(std::begin(kSpeeds), std::end(kSpeeds), GetLe32(&parameters[2])) != std::end(kSpeeds);
}

//   ten bytes, of which only the last is not zero; a written OTP disallows the question
bool OtpQuestionFits(const Bytes& parameters) { return parameters == Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 1}; }

constexpr int kDebugInfoFragments = 3;
constexpr unsigned kDebugInfoBytes = 64;

}  // namespace

void VendorCommands::AddTo(CommandTable* table) {
  table->Add(kWriteBdAddr, kUnlisted, {6}, [this](const Bytes& p) {
    if (!identity_->address_is_fixed) identity_->address = p;
    if (identity_->address == p) return Answer();
    outlet_->ProtocolError("the emulator's address cannot be changed to " + AddressText(p));
    return Answer::Complete({kCommandDisallowed});
  });
  //   0 | 0 | bit rate, 32 bits
  table->Add(kUpdateBaudRate, kUnlisted, {6, {}, SpeedFits}, [this](const Bytes& p) {
    Answer answer;
    answer.sent = [this, speed = GetLe32(&p[2])] { chip_->ChangeSpeed(speed); };
    return answer;
  });
  table->Add(kSetSleepMode, kUnlisted, {12}, [this](const Bytes&) {
    Answer answer;
    answer.sent = [this] { chip_->SetSleepMode(); };
    return answer;
  });
  table->Add(kReadVersion, kUnlisted, {}, [this](const Bytes&) { return Version(); });
  table->Add(kReadCapabilities, kUnlisted, {}, [](const Bytes&) { return Capabilities(); });
  table->Add(kCheckOtp, kUnlisted, {10, {}, OtpQuestionFits},
             [this](const Bytes&) { return Answer::Complete({options_.otp_written ? kCommandDisallowed : kSuccess}); });
  table->Add(kDebugInformation, kUnlisted, {}, [this](const Bytes&) { return DebugInformation(); });
  table->Add(kQualityReports, kUnlisted, {7, {Byte(0, 0, 2)}, nullptr, true},
             [this](const Bytes& p) { return QualityReports(p); });
  table->Add(kFinder, kUnlisted, {1, {}, nullptr, true}, [this](const Bytes& p) { return Finder(p); });
}

void VendorCommands::Forget() {
  finder_keys_ = 0;
  quality_mask_ = 0;
}

//   chip | target | build base | build
Answer VendorCommands::Version() const {
  Bytes answer{kSuccess, identity_->chip_id, 0x00};
  Put16(answer, 0);
  Put16(answer, identity_->build);
  return Answer::Complete(answer);
}

//   0xFF | length | 0x57 | 0 | 0 | last | index, 16 bits | data
Answer VendorCommands::DebugInformation() {
  return Answer::None([this] {
    for (int i = 0; i < kDebugInfoFragments; ++i) {
      Bytes fragment{kDebugInfoReport, 0x00, 0x00, static_cast<uint8_t>(i + 1 == kDebugInfoFragments)};
      Put16(fragment, static_cast<unsigned>(i));
      for (unsigned k = 0; k < kDebugInfoBytes; ++k) Put8(fragment, static_cast<unsigned>(i) * kDebugInfoBytes + k);
      outlet_->SendEvent(kVendorEvent, fragment);
    }
  });
}

// What the stack may hand to the controller: nothing. Its fields count advertising sets, stored results, filters and
// the like, two of them in 16 bits; the version is 0.98.
Answer VendorCommands::Capabilities() {
  constexpr unsigned kVersion = 0x0062;
  Bytes answer{kSuccess, 0, 0};
  Put16(answer, 0);
  PutAll(answer, {0, 0, 0, 0});
  Put16(answer, kVersion);
  Put16(answer, 0);
  PutAll(answer, {0, 0});
  return Answer::Complete(answer);
}

//   action (0 add, 1 delete, 2 clear) | event mask, 32 bits | least interval in ms, 16 bits
Answer VendorCommands::QualityReports(const Bytes& parameters) {
  constexpr uint8_t kAdd = 0;
  constexpr uint8_t kDelete = 1;
  const uint32_t mask = GetLe32(&parameters[1]);
  const uint8_t action = parameters[0];
  quality_mask_ = action == kAdd ? quality_mask_ | mask : action == kDelete ? quality_mask_ & ~mask : 0;
  Bytes answer{kSuccess};
  Put32(answer, quality_mask_);
  return Answer::Complete(answer);
}

//   keys:   1 | index of the first | count | count keys of 20 bytes
//   start:  2 | 64 | 6 | 10 | 0 | 4 | argument | 0 | 80
Answer VendorCommands::Finder(const Bytes& parameters) {
  constexpr uint8_t kKeys = 1;
  constexpr uint8_t kStart = 2;
  constexpr size_t kKeySize = 20;
  constexpr size_t kStartLength = 9;
  const uint8_t form = parameters[0];
  uint8_t status = kInvalidParameters;
  if (form == kKeys && parameters.size() >= 3 && parameters.size() == 3 + kKeySize * parameters[2]) {
    finder_keys_ = std::max<size_t>(finder_keys_, parameters[1] + parameters[2]);
    status = kSuccess;
  } else if (form == kStart && parameters.size() == kStartLength) {
    status = finder_keys_ == 0 ? kCommandDisallowed : kSuccess;
  }
  return Answer::Complete({status, form});
}

}  // namespace bthal::sim
