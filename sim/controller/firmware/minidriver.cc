#include "sim/controller/firmware/minidriver.h"

#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

// Chips below this one have a loader that answers every record.
constexpr uint8_t kFirstChipWithFastMode = 174;
// The loader of this one cannot be told: it answers a record when the host then waits.
constexpr uint8_t kChipWithImpliedFastMode = 170;
constexpr auto kHostWaitsAfter = std::chrono::milliseconds(5);

}  // namespace

void Minidriver::AddTo(CommandTable* table) {
  table->Add(kDownloadMinidriver, kUnlisted, {}, [this](const Bytes&) { return Download(); });
  if (options_.chip_id >= kFirstChipWithFastMode) {
    //   0 | 1: records without acknowledgement
    table->Add(kSetDownloadConfig, kUnlisted, {2, {Byte(0, 0, 0), Flag(1)}}, [this](const Bytes& p) {
      fast_ = p[1] == 1;
      return Answer();
    });
  }
  table->Add(kWriteRam, kUnlisted, {4, {}, nullptr, true}, [this](const Bytes& p) { return Write(p); });
  table->Add(kLaunchRam, kUnlisted, {4, {}, nullptr, true}, [this](const Bytes& p) { return Launch(p); });
}

void Minidriver::Forget() {
  loader_.Start();
  fast_ = false;
}

bool Minidriver::Takes(uint16_t opcode) { return opcode == kWriteRam || opcode == kLaunchRam; }

bool Minidriver::IsSilent(uint16_t opcode) const {
  return opcode == kWriteRam && chip_->InMinidriver() && RecordsAre() == Records::kSilent;
}

bool Minidriver::IsAnsweredWhenIdle(uint16_t opcode) const {
  return opcode == kWriteRam && chip_->InMinidriver() && RecordsAre() == Records::kAnsweredWhenIdle;
}

Minidriver::Records Minidriver::RecordsAre() const {
  if (options_.chip_id == kChipWithImpliedFastMode) return Records::kAnsweredWhenIdle;
  return fast_ ? Records::kSilent : Records::kAnswered;
}

Answer Minidriver::Download() {
  loader_.Start();
  chip_->EnterMinidriver();
  return {};
}

Answer Minidriver::Write(const Bytes& parameters) {
  if (!chip_->InMinidriver()) return Answer::Complete({kCommandDisallowed});
  std::string error;
  const uint8_t status = loader_.Write(parameters, &error);
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
    Put16(complete, kWriteRam);
    Put8(complete, status);
    outlet_->SendEvent(kCommandCompleteEvent, complete);
  });
  return Answer::None();
}

Answer Minidriver::Launch(const Bytes& parameters) {
  if (!chip_->InMinidriver()) return Answer::Complete({kCommandDisallowed});
  std::string error;
  const uint8_t status = loader_.Launch(parameters, &error);
  if (status != kSuccess) {
    outlet_->ProtocolError(error);
    return Answer::Complete({status});
  }
  Answer answer;
  answer.sent = [this] {
    const std::string image_name = loader_.image_name();
    Forget();
    chip_->BootPatch(image_name);
  };
  return answer;
}

}  // namespace bthal::sim
