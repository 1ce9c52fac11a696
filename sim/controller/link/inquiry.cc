#include "sim/controller/link/inquiry.h"

#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr uint32_t kFirstAccessCode = 0x9E8B00;
constexpr uint32_t kLastAccessCode = 0x9E8B3F;
constexpr auto kTakes = std::chrono::milliseconds(100);

}  // namespace

//   access code, 24 bits | duration in 1.28 s | most answers
void Inquiry::AddTo(CommandTable* table) {
  table->AddByStatus(kInquiry, {0, 0}, {5, {{0, 3, kFirstAccessCode, kLastAccessCode}, Byte(3, 0x01, 0x30)}},
                     [this](const Bytes&) { return Begin(); });
  table->Add(kInquiryCancel, {0, 1}, {}, [this](const Bytes&) { return Cancel(); });
}

Answer Inquiry::Begin() {
  if (run_ != 0) return Answer::Status(kCommandDisallowed);
  run_ = ++runs_;
  return Answer::Status(kSuccess, [this] { outlet_->timers().After(kTakes, [this, run = run_] { End(run); }); });
}

Answer Inquiry::Cancel() {
  if (run_ == 0) return Answer::Complete({kCommandDisallowed});
  run_ = 0;
  return {};
}

void Inquiry::End(uint64_t run) {
  if (run != run_) return;
  run_ = 0;
  for (const Neighbour& neighbour : Neighbours()) {
    if (!neighbour.low_energy) Report(neighbour);
  }
  outlet_->SendEvent(kInquiryCompleteEvent, {kSuccess});
}

//   standard:   count | address | page scan repetition | 0 | 0 | class of device | clock offset
//   with RSSI:  count | address | page scan repetition | 0 | class of device | clock offset | RSSI [| extended data]
void Inquiry::Report(const Neighbour& neighbour) {
  constexpr uint8_t kStandard = 0;
  constexpr uint8_t kExtended = 2;
  const uint8_t mode = settings_->Value(kWriteInquiryMode)[0];
  Bytes event{1};
  PutAll(event, neighbour.address);
  PutAll(event, {1, 0});
  if (mode == kStandard) Put8(event, 0);
  Put16(event, neighbour.class_of_device & 0xFFFF);
  Put8(event, neighbour.class_of_device >> 16);
  Put16(event, 0);
  if (mode == kStandard) {
    outlet_->SendEvent(kInquiryResultEvent, event);
    return;
  }
  Put8(event, static_cast<uint8_t>(neighbour.rssi));
  if (mode == kExtended) PutAll(event, ExtendedInquiryData(neighbour));
  outlet_->SendEvent(mode == kExtended ? kExtendedInquiryResultEvent : kInquiryResultWithRssiEvent, event);
}

}  // namespace bthal::sim
