#include "sim/controller/vendor.h"

#include <algorithm>

namespace bthal::sim {
namespace {

constexpr uint16_t kWriteBdAddr = 0xFC01;
constexpr uint16_t kUpdateBaudRate = 0xFC18;
constexpr uint16_t kSetSleepMode = 0xFC27;
constexpr uint16_t kDownloadMinidriver = 0xFC2E;
constexpr uint16_t kReadVersion = 0xFC79;
constexpr uint16_t kCapabilities = 0xFD53;
constexpr uint16_t kDebugInformation = 0xFD5B;
constexpr uint16_t kQualityReports = 0xFD5E;
constexpr uint16_t kFinder = 0xFD62;
constexpr uint16_t kCheckOtp = 0xFE2F;
constexpr uint16_t kSetDownloadConfig = 0xFE72;

// Chips below this one have a loader that answers every record.
constexpr uint8_t kFirstChipWithFastMode = 174;
// The loader of this one cannot be told: it answers a record when the host then waits.
constexpr uint8_t kChipWithImpliedFastMode = 170;
constexpr auto kHostWaitsAfter = std::chrono::milliseconds(5);

constexpr uint32_t kSpeeds[] = {115200, 230400, 460800, 921600, 1000000, 2000000, 3000000, 4000000, 6000000};

constexpr uint8_t kVendorEvent = 0xFF;
constexpr uint8_t kDebugInfoReport = 0x57;
constexpr int kDebugInfoFragments = 3;
constexpr unsigned kDebugInfoBytes = 64;

constexpr uint16_t kPatchedBuild = 1234;

}  // namespace

VendorCommands::VendorCommands(const BoardOptions& options, Outlet* outlet, Owner* owner, EventJournal* journal,
                               Identity* identity)
    : options_(options),
      outlet_(outlet),
      owner_(owner),
      journal_(journal),
      identity_(identity),
      loader_(options.check_patch) {}

void VendorCommands::AddTo(CommandTable* table) {
  constexpr int kNoBit = CommandTable::kNoBit;
  auto add = [&](uint16_t opcode, size_t length, Command::Handler handler) {
    table->Add(opcode, length, kNoBit, 0, std::move(handler));
  };
  add(kWriteBdAddr, 6, [this](const Bytes& p) { return WriteAddress(p); });
  add(kUpdateBaudRate, 6, [this](const Bytes& p) { return ChangeSpeed(p); });
  add(kSetSleepMode, 12, [this](const Bytes& p) { return SetSleepMode(p); });
  add(kDownloadMinidriver, 0, [this](const Bytes&) { return DownloadMinidriver(); });
  add(kReadVersion, 0, [this](const Bytes&) { return Version(); });
  add(kCapabilities, 0, [this](const Bytes&) { return Capabilities(); });
  add(kCheckOtp, 10, [this](const Bytes& p) { return CheckOtp(p); });
  add(kSetDownloadConfig, 2, [this](const Bytes& p) { return SetDownloadMode(p); });
  add(kDebugInformation, 0, [this](const Bytes&) { return DebugInformation(); });
  table->AddOfAnyLength(kWriteRamOpcode, 4, kNoBit, 0, [this](const Bytes& p) { return WriteRam(p); });
  table->AddOfAnyLength(kLaunchRamOpcode, 4, kNoBit, 0, [this](const Bytes& p) { return LaunchRam(p); });
  table->AddOfAnyLength(kQualityReports, 7, kNoBit, 0, [this](const Bytes& p) { return QualityReports(p); });
  table->AddOfAnyLength(kFinder, 1, kNoBit, 0, [this](const Bytes& p) { return Finder(p); });
}

void VendorCommands::Forget() {
  loader_.Start();
  fast_ = false;
  finder_keys_ = 0;
  quality_mask_ = 0;
}

bool VendorCommands::IsForMinidriver(uint16_t opcode) {
  return opcode == kWriteRamOpcode || opcode == kLaunchRamOpcode;
}

bool VendorCommands::IsSilent(uint16_t opcode) const {
  if (opcode == kDebugInformation) return true;
  return opcode == kWriteRamOpcode && owner_->InMinidriver() && RecordsAre() == Records::kSilent;
}

bool VendorCommands::IsAnswered(uint16_t opcode) const {
  const bool when_idle =
      opcode == kWriteRamOpcode && owner_->InMinidriver() && RecordsAre() == Records::kAnsweredWhenIdle;
  return !when_idle && !IsSilent(opcode);
}

VendorCommands::Records VendorCommands::RecordsAre() const {
  if (options_.chip_id == kChipWithImpliedFastMode) return Records::kAnsweredWhenIdle;
  return fast_ ? Records::kSilent : Records::kAnswered;
}

//   chip | target | build base | build
Answer VendorCommands::Version() const {
  Bytes answer{kSuccess, identity_->chip_id, 0x00};
  Put16(answer, 0);
  Put16(answer, identity_->build);
  return Answer::Complete(answer);
}

Answer VendorCommands::WriteAddress(const Bytes& parameters) {
  identity_->address = parameters;
  return Answer::Complete({kSuccess});
}

//   0 | 0 | bit rate, 32 bits
Answer VendorCommands::ChangeSpeed(const Bytes& parameters) {
  const uint32_t speed = GetLe32(&parameters[2]);
  if (std::find(std::begin(kSpeeds), std::end(kSpeeds), speed) == std::end(kSpeeds)) {
    return Answer::Complete({kInvalidParameters});
  }
  Answer answer;
  answer.sent = [this, speed] { owner_->ChangeSpeed(speed); };
  return answer;
}

Answer VendorCommands::SetSleepMode(const Bytes& /*parameters*/) {
  Answer answer;
  answer.sent = [this] { owner_->SetSleepMode(); };
  return answer;
}

//   ten bytes, of which only the last is not zero; a written OTP disallows the question
Answer VendorCommands::CheckOtp(const Bytes& parameters) const {
  if (parameters != Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 1}) return Answer::Complete({kInvalidParameters});
  return Answer::Complete({options_.otp_written ? kCommandDisallowed : kSuccess});
}

//   0 | 1: records without acknowledgement
Answer VendorCommands::SetDownloadMode(const Bytes& parameters) {
  if (options_.chip_id < kFirstChipWithFastMode) return Answer::Complete({kUnknownCommand});
  if (parameters[0] != 0 || parameters[1] > 1) return Answer::Complete({kInvalidParameters});
  fast_ = parameters[1] == 1;
  return Answer::Complete({kSuccess});
}

Answer VendorCommands::DownloadMinidriver() {
  loader_.Start();
  owner_->EnterMinidriver();
  return Answer::Complete({kSuccess});
}

Answer VendorCommands::WriteRam(const Bytes& parameters) {
  if (!owner_->InMinidriver()) return Answer::Complete({kCommandDisallowed});
  std::string error;
  const uint8_t status = loader_.Write(parameters.data(), parameters.size(), &error);
  if (status != kSuccess) {
    outlet_->ProtocolError(error);
  } else {
    JournalEntry entry;
    entry.event = WireEvent::kPatchRecord;
    entry.value = loader_.received();
    entry.total = loader_.total();
    journal_->Record(std::move(entry));
  }
  if (RecordsAre() == Records::kSilent) return Answer::None();
  if (RecordsAre() == Records::kAnswered) return Answer::Complete({status});
  outlet_->timers().After(kHostWaitsAfter, [this, status, packets = packets_] {
    if (packets != packets_) return;
    Bytes complete{1};
    Put16(complete, kWriteRamOpcode);
    Put8(complete, status);
    outlet_->SendEvent(0x0E, complete);
  });
  return Answer::None();
}

Answer VendorCommands::LaunchRam(const Bytes& parameters) {
  if (!owner_->InMinidriver()) return Answer::Complete({kCommandDisallowed});
  std::string error;
  const uint8_t status = loader_.Launch(parameters.data(), parameters.size(), &error);
  if (status != kSuccess) {
    outlet_->ProtocolError(error);
    return Answer::Complete({status});
  }
  Answer answer;
  answer.sent = [this] {
    const std::string image_name = loader_.image_name();
    Forget();
    identity_->name = identity_->patched_name;
    identity_->build = kPatchedBuild;
    owner_->BootPatch(image_name);
  };
  return answer;
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
Answer VendorCommands::Capabilities() const {
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
  const uint32_t mask = GetLe32(&parameters[1]);
  switch (parameters[0]) {
    case 0:
      quality_mask_ |= mask;
      break;
    case 1:
      quality_mask_ &= ~mask;
      break;
    case 2:
      quality_mask_ = 0;
      break;
    default:
      return Answer::Complete({kInvalidParameters});
  }
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
