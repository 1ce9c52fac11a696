#include "sim/controller/link/scanner.h"

#include <bit>

#include "sim/controller/opcodes.h"
#include "sim/controller/timing.h"

namespace bthal::sim {
namespace {

// A host that has just said that it scans needs a moment until it is ready for what comes of it.
constexpr auto kFirstHeardIn = std::chrono::milliseconds(20);
constexpr auto kAdvertisersEvery = std::chrono::milliseconds(100);
// A host that does not keep up misses reports, as it would in the air.
constexpr size_t kTooMuchWaits = 4096;

//   active | interval and window, 16 bits each | own address type | filter policy
bool ScanParametersFit(const Bytes& parameters) { return ScanTimesFit(&parameters[1], 0x4000); }

//   own address type | filter policy | physical layers | of each: active | interval and window, 16 bits each
bool ExtendedScanParametersFit(const Bytes& parameters) {
  constexpr uint8_t kOneMegabit = 0x01;
  constexpr uint8_t kCoded = 0x04;
  constexpr size_t kHeader = 3;
  constexpr size_t kLayer = 5;
  const uint8_t layers = parameters[2];
  if (layers == 0 || (layers & ~(kOneMegabit | kCoded)) != 0) return false;
  if (parameters.size() != kHeader + kLayer * static_cast<size_t>(std::popcount(layers))) return false;
  for (size_t at = kHeader; at < parameters.size(); at += kLayer) {
    if (parameters[at] > 1 || !ScanTimesFit(&parameters[at + 1], 0xFFFF)) return false;
  }
  return true;
}

//   enable | once each: 0 no, 1 yes, 2 in each period | duration in 10 ms | period in 1.28 s, 16 bits each
bool ExtendedScanEnableFits(const Bytes& parameters) {
  constexpr uint8_t kOnceEachPeriod = 2;
  const unsigned duration_ms = GetLe16(&parameters[2]) * 10u;
  const unsigned period_ms = GetLe16(&parameters[4]) * 1280u;
  if (parameters[1] == kOnceEachPeriod && (duration_ms == 0 || period_ms == 0)) return false;
  return duration_ms == 0 || period_ms == 0 || duration_ms < period_ms;
}

}  // namespace

void Scanner::AddTo(CommandTable* table) {
  // Whether it is active comes first for each layer; the first layer decides.
  auto parameters = [this](bool active) {
    if (run_ != 0) return Answer::Complete({kCommandDisallowed});
    active_ = active;
    return Answer();
  };
  table->Add(kLeSetScanParameters, {26, 2}, {7, {Flag(0), Byte(5, 0, 3), Flag(6)}, ScanParametersFit},
             [parameters](const Bytes& p) { return parameters(p[0] != 0); });
  table->Add(kLeSetScanEnable, {26, 3}, {2, {Flag(0), Flag(1)}},
             [this](const Bytes& p) { return Enable(p[0] == 1, false, p[1] == 1); });
  table->Add(kLeSetExtendedScanParameters, {37, 5}, {3, {Byte(0, 0, 3), Flag(1)}, ExtendedScanParametersFit, true},
             [parameters](const Bytes& p) { return parameters(p[3] != 0); });
  table->Add(kLeSetExtendedScanEnable, {37, 6}, {6, {Flag(0), Byte(1, 0, 2)}, ExtendedScanEnableFits},
             [this](const Bytes& p) {
               Answer answer = Enable(p[0] == 1, true, p[1] != 0);
               const unsigned duration = GetLe16(&p[2]);
               const unsigned period = GetLe16(&p[4]);
               // With a period it would begin again: to the host that is one long scan.
               if (p[0] == 1 && duration != 0 && period == 0) EndIn(std::chrono::milliseconds(duration * 10));
               return answer;
             });
}

void Scanner::Reset() {
  run_ = 0;
  active_ = false;
  reported_.clear();
}

Answer Scanner::Enable(bool enable, bool extended, bool once_each) {
  const bool starts = enable && run_ == 0;
  if (starts) run_ = ++runs_;
  if (!enable) run_ = 0;
  extended_ = extended;
  once_each_ = once_each;
  reported_.clear();
  Answer answer;
  if (starts) {
    answer.then = [this] { outlet_->timers().After(kFirstHeardIn, [this, run = run_] { ReportAll(run); }); };
  }
  return answer;
}

//   sub-event
void Scanner::EndIn(Clock::duration duration) {
  outlet_->timers().After(duration, [this, run = run_] {
    if (run != run_) return;
    run_ = 0;
    outlet_->SendEvent(kLeMetaEvent, {kLeScanTimeout});
  });
}

void Scanner::ReportAll(uint64_t run) {
  if (run != run_) return;
  for (const Neighbour& neighbour : Neighbours()) {
    if (!neighbour.low_energy || outlet_->Waiting() > kTooMuchWaits) continue;
    if (once_each_ && !reported_.insert(neighbour.address).second) continue;
    Report(neighbour, false);
    if (active_) Report(neighbour, true);  // who has no more to say says so
  }
  outlet_->timers().After(kAdvertisersEvery, [this, run] { ReportAll(run); });
}

//   legacy:    2 | count | type | address type | address | length | data | RSSI
//   extended: 13 | count | type, 16 bits | address type | address | primary and secondary PHY | set | power | RSSI |
//             periodic interval, 16 bits | direct address type and address | length | data
void Scanner::Report(const Neighbour& neighbour, bool scan_response) {
  constexpr uint8_t kConnectable = 0x00;
  constexpr uint8_t kScanResponse = 0x04;
  constexpr unsigned kLegacyConnectable = 0x0013;
  constexpr unsigned kLegacyScanResponse = 0x001B;
  const Bytes data = scan_response ? ScanResponseData(neighbour) : AdvertisingData(neighbour);
  Bytes event;
  if (extended_) {
    event = {kLeExtendedAdvertisingReport, 1};
    Put16(event, scan_response ? kLegacyScanResponse : kLegacyConnectable);
    Put8(event, neighbour.address_type);
    PutAll(event, neighbour.address);
    PutAll(event, {0x01, 0x00, 0xFF, 0x7F, static_cast<uint8_t>(neighbour.rssi)});
    event.resize(event.size() + 2 + 7);
    Put8(event, static_cast<unsigned>(data.size()));
    PutAll(event, data);
  } else {
    event = {kLeAdvertisingReport, 1, scan_response ? kScanResponse : kConnectable, neighbour.address_type};
    PutAll(event, neighbour.address);
    Put8(event, static_cast<unsigned>(data.size()));
    PutAll(event, data);
    Put8(event, static_cast<uint8_t>(neighbour.rssi));
  }
  outlet_->SendEvent(kLeMetaEvent, event);
}

}  // namespace bthal::sim
