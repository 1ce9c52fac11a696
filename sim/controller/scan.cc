// Inquiry, scanning and advertising.
#include "sim/controller/links.h"

namespace bthal::sim {
namespace {

constexpr uint8_t kInquiryComplete = 0x01;
constexpr uint8_t kInquiryResult = 0x02;
constexpr uint8_t kLeMeta = 0x3E;
constexpr uint8_t kAdvertisingReport = 0x02;
constexpr uint8_t kExtendedAdvertisingReport = 0x0D;

constexpr auto kInquiryTakes = std::chrono::milliseconds(100);
constexpr auto kAdvertisersEvery = std::chrono::milliseconds(100);
// A host that does not keep up misses reports, as it would in the air.
constexpr size_t kTooMuchWaits = 4096;
constexpr uint8_t kAdvertisingSets = 4;
constexpr uint8_t kListSize = 16;
constexpr unsigned kLongestAdvertisingData = 251;

Bytes ListEntry(const Bytes& parameters) { return Bytes(parameters.begin(), parameters.begin() + 7); }

}  // namespace

void Links::AddInquiryCommands(CommandTable* table) {
  table->AddByStatus(0x0401, 5, 0, 0, [this](const Bytes&) {
    if (inquiry_ != 0) return Answer::Status(kCommandDisallowed);
    inquiry_ = ++runs_;
    return Answer::Status(kSuccess, [this] {
      outlet_->timers().After(kInquiryTakes, [this, inquiry = inquiry_] { InquiryResults(inquiry); });
    });
  });
  table->Add(0x0402, 0, 0, 1, [this](const Bytes&) {
    if (inquiry_ == 0) return Answer::Complete({kCommandDisallowed});
    inquiry_ = 0;
    return Answer();
  });
}

//   count | address | page scan repetition | 0 | 0 | class of device | clock offset
void Links::InquiryResults(uint64_t inquiry) {
  if (inquiry != inquiry_) return;
  inquiry_ = 0;
  for (const Neighbour& neighbour : Neighbours()) {
    if (neighbour.low_energy) continue;
    Bytes event{1};
    PutAll(event, neighbour.address);
    PutAll(event, {1, 0, 0});
    Put16(event, neighbour.class_of_device & 0xFFFF);
    Put8(event, neighbour.class_of_device >> 16);
    Put16(event, 0);
    outlet_->SendEvent(kInquiryResult, event);
  }
  outlet_->SendEvent(kInquiryComplete, {kSuccess});
}

void Links::AddScanCommands(CommandTable* table) {
  auto while_idle = [this](const Bytes&) { return Answer::Complete({scan_ != 0 ? kCommandDisallowed : kSuccess}); };
  table->Add(0x200B, 7, 26, 2, while_idle);
  table->Add(0x200C, 2, 26, 3, [this](const Bytes& p) { return Scan(p[0] == 1, false, p[1] == 1); });
  table->AddOfAnyLength(0x2041, 3, 37, 5, while_idle);
  table->Add(0x2042, 6, 37, 6, [this](const Bytes& p) { return Scan(p[0] == 1, true, p[1] != 0); });
}

Answer Links::Scan(bool enable, bool extended, bool once_each) {
  const bool starts = enable && scan_ == 0;
  if (starts) scan_ = ++runs_;
  if (!enable) scan_ = 0;
  extended_scan_ = extended;
  once_each_ = once_each;
  reported_.clear();
  Answer answer;
  if (!starts) return answer;
  answer.then = [this] { ReportAdvertisers(scan_); };
  return answer;
}

void Links::ReportAdvertisers(uint64_t scan) {
  if (scan != scan_) return;
  for (const Neighbour& neighbour : Neighbours()) {
    if (!neighbour.low_energy || outlet_->Waiting() > kTooMuchWaits) continue;
    if (once_each_ && !reported_.insert(neighbour.address).second) continue;
    Report(neighbour);
  }
  outlet_->timers().After(kAdvertisersEvery, [this, scan] { ReportAdvertisers(scan); });
}

//   legacy:    2 | count | type | address type | address | length | data | RSSI
//   extended: 13 | count | type, 16 bits | address type | address | primary and secondary PHY | set | power | RSSI |
//             periodic interval, 16 bits | direct address type and address | length | data
void Links::Report(const Neighbour& neighbour) {
  constexpr uint8_t kConnectable = 0x00;
  constexpr unsigned kLegacyConnectable = 0x0013;
  const Bytes data = AdvertisingData(neighbour);
  Bytes event;
  if (extended_scan_) {
    event = {kExtendedAdvertisingReport, 1};
    Put16(event, kLegacyConnectable);
    Put8(event, neighbour.address_type);
    PutAll(event, neighbour.address);
    PutAll(event, {0x01, 0x00, 0xFF, 0x7F, static_cast<uint8_t>(neighbour.rssi)});
    event.resize(event.size() + 2 + 7);
    Put8(event, static_cast<unsigned>(data.size()));
    PutAll(event, data);
  } else {
    event = {kAdvertisingReport, 1, kConnectable, neighbour.address_type};
    PutAll(event, neighbour.address);
    Put8(event, static_cast<unsigned>(data.size()));
    PutAll(event, data);
    Put8(event, static_cast<uint8_t>(neighbour.rssi));
  }
  outlet_->SendEvent(kLeMeta, event);
}

void Links::AddAdvertisingCommands(CommandTable* table) {
  auto ok = [](const Bytes&) { return Answer(); };
  auto power = [](const Bytes&) { return Answer::Complete({kSuccess, 0x00}); };
  table->Add(0x2005, 6, 25, 4, ok);  // random address
  table->Add(0x2006, 15, 25, 5, ok);
  table->Add(0x2007, 0, 25, 6, power);
  table->Add(0x2008, 32, 25, 7, ok);
  table->Add(0x2009, 32, 26, 0, ok);
  table->Add(0x200A, 1, 26, 1,
             [](const Bytes& p) { return Answer::Complete({p[0] > 1 ? kInvalidParameters : kSuccess}); });
  table->Add(0x2035, 7, 36, 1, ok);
  table->AddOfAnyLength(0x2036, 25, 36, 2, [this](const Bytes& p) {
    if (p[0] >= kAdvertisingSets) return Answer::Complete({kInvalidParameters});
    advertising_sets_.insert(p[0]);
    return Answer::Complete({kSuccess, 0x00});
  });
  auto for_set = [this](const Bytes& p) {
    constexpr uint8_t kUnknownSet = 0x42;
    return Answer::Complete({advertising_sets_.count(p[0]) == 0 ? kUnknownSet : kSuccess});
  };
  table->AddOfAnyLength(0x2037, 4, 36, 3, for_set);
  table->AddOfAnyLength(0x2038, 4, 36, 4, for_set);
  table->AddOfAnyLength(0x2039, 2, 36, 5, ok);
  table->Add(0x203A, 0, 36, 6, [](const Bytes&) {
    Bytes answer{kSuccess};
    Put16(answer, kLongestAdvertisingData);
    return Answer::Complete(answer);
  });
  table->Add(0x203B, 0, 36, 7, [](const Bytes&) { return Answer::Complete({kSuccess, kAdvertisingSets}); });
  table->Add(0x203C, 1, 37, 0, [this, for_set](const Bytes& p) {
    Answer answer = for_set(p);
    advertising_sets_.erase(p[0]);
    return answer;
  });
  table->Add(0x203D, 0, 37, 1, [this](const Bytes&) {
    advertising_sets_.clear();
    return Answer();
  });
}

void Links::AddListCommands(CommandTable* table) {
  auto ok = [](const Bytes&) { return Answer(); };
  auto size = [](const Bytes&) { return Answer::Complete({kSuccess, kListSize}); };
  table->Add(0x200F, 0, 26, 6, size);
  table->Add(0x2010, 0, 26, 7, [this](const Bytes&) {
    accept_list_.clear();
    return Answer();
  });
  table->Add(0x2011, 7, 27, 0, [this](const Bytes& p) {
    constexpr uint8_t kFull = 0x07;
    if (accept_list_.size() == kListSize) return Answer::Complete({kFull});
    accept_list_.insert(ListEntry(p));
    return Answer();
  });
  table->Add(0x2012, 7, 27, 1, [this](const Bytes& p) {
    accept_list_.erase(ListEntry(p));
    return Answer();
  });
  // Nobody around the board uses resolvable addresses: the list is kept by nobody and found by nobody.
  table->Add(0x2027, 39, 34, 3, ok);
  table->Add(0x2028, 7, 34, 4, ok);
  table->Add(0x2029, 0, 34, 5, ok);
  table->Add(0x202A, 0, 34, 6, size);
}

}  // namespace bthal::sim
