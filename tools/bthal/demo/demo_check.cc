#include "bthal/demo/demo_check.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <optional>
#include <span>

#include "bthal/hci/values.h"
#include "bthal/hci/words.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using sim::JournalEntry;
using sim::WireEvent;
using Journal = std::span<const JournalEntry>;

constexpr uint64_t kWorkingSpeed = 4000000;
constexpr uint64_t kEarlyHubSpeed = 6000000;  // of the sensor hub's path on early revisions, as a new root is one

bool Has(Journal journal, WireEvent event) {
  return std::ranges::find(journal, event, &JournalEntry::event) != journal.end();
}

std::optional<uint64_t> LastValue(Journal journal, WireEvent event) {
  std::optional<uint64_t> value;
  for (const JournalEntry& entry : journal) {
    if (entry.event == event) value = entry.value;
  }
  return value;
}

bool IsCommand(const JournalEntry& entry, uint16_t opcode) {
  return entry.event == WireEvent::kReceived && tool::IsCommand(entry.packet_type, entry.bytes, opcode);
}

// The successful answer to `opcode` behind the command itself, or null.
const JournalEntry* Answered(Journal journal, uint16_t opcode) {
  const auto command = std::ranges::find_if(journal, [&](const auto& entry) { return IsCommand(entry, opcode); });
  const auto answer = std::find_if(command, journal.end(), [&](const JournalEntry& entry) {
    return entry.event == WireEvent::kSent && entry.packet_type == kEvent && AnsweredOpcode(entry.bytes) == opcode &&
           AnsweredStatus(entry.bytes) == 0;
  });
  return answer == journal.end() ? nullptr : &*answer;
}

DemoFact PatchFact(Journal journal) {
  uint64_t records = 0;
  uint64_t total = 0;
  for (const JournalEntry& entry : journal) {
    if (entry.event != WireEvent::kPatchRecord) continue;
    records = entry.value;
    total = entry.total;
  }
  // Launch RAM ends the file; whether it counts as one of its records is the board's affair.
  const bool complete = records != 0 && records + 1 >= total && Has(journal, WireEvent::kPatchLaunched);
  return {complete, StringPrintf("%llu of %llu patch records arrived in order, and the patch was launched",
                                 static_cast<unsigned long long>(records), static_cast<unsigned long long>(total))};
}

DemoFact SpeedFact(Journal journal, bool hub) {
  const auto speed = LastValue(journal, WireEvent::kSpeed).value_or(0);
  const bool working = speed == kWorkingSpeed || (hub && speed == kEarlyHubSpeed);
  return {working && LastValue(journal, WireEvent::kHostSpeed) == speed,
          StringPrintf("both ends of the line reached %llu bit/s",
                       static_cast<unsigned long long>(working || hub ? speed : kWorkingSpeed))};
}

// Whether all records came is another fact's; here, whether the hub has batched them.
DemoFact BatchFact(const Download& download) {
  return {download.messages < download.records,
          StringPrintf("%llu records of it came by the sensor hub in %llu messages",
                       static_cast<unsigned long long>(download.records),
                       static_cast<unsigned long long>(download.messages))};
}

DemoFact ScanFact(Journal client) {
  bool on = false;
  bool reported = false;
  bool off = false;
  for (const JournalEntry& entry : client) {
    if (IsCommand(entry, opcodes::kLeScanEnable) && entry.bytes.size() > 3) {
      (entry.bytes[3] != 0 ? on : off) = true;
    } else if (on && entry.event == WireEvent::kSent && entry.packet_type == kEvent) {
      reported |= EventName(entry.bytes) == "LE Advertising Report";
    }
  }
  return {on && reported && off, "an LE scan was switched on, found something, and was switched off"};
}

DemoFact AddressFact(Journal client, const std::string& address) {
  const JournalEntry* answer = Answered(client, opcodes::kReadBdAddr);
  const bool right = answer != nullptr && answer->bytes.size() >= 12 &&
                     AddressWords(std::span(answer->bytes).subspan(6, 6)) == address;
  return {right, "Read BD_ADDR was answered with " + address};
}

// Bytes that the board could not take, and rules that the host broke.
DemoFact CleanFact(Journal journal) {
  const auto bad = std::ranges::find_if(journal, [](const JournalEntry& entry) {
    return entry.event == WireEvent::kLostBytes || entry.event == WireEvent::kProtocolError;
  });
  if (bad == journal.end()) return {true, "no byte was lost, and no rule of the controller broken"};
  return {false, std::string(sim::ToString(bad->event)) + ": " + bad->text};
}

}  // namespace

Download DownloadIn(const std::vector<JournalEntry>& journal, bool hub) {
  constexpr uint16_t kWriteRam = 0xFC4C;
  Download download;
  uint64_t batches = 0;
  std::optional<std::chrono::steady_clock::time_point> begin;
  for (const JournalEntry& entry : journal) {
    const bool batch = entry.event == WireEvent::kHubRequest && entry.text.starts_with("batch");
    const bool record = IsCommand(entry, kWriteRam);
    if (!batch && !record) continue;
    if (!begin) begin = entry.time;
    download.seconds = std::chrono::duration<double>(entry.time - *begin).count();
    batches += batch ? 1 : 0;
    download.records += record ? 1 : 0;
    download.bytes += record ? entry.value + 1 : 0;
  }
  download.messages = hub ? batches : download.records;
  return download;
}

std::vector<DemoFact> CheckDemo(const std::vector<JournalEntry>& journal, size_t client_begins,
                                const sim::BoardOptions& options) {
  const Journal all(journal);
  const size_t split = std::min(client_begins, all.size());
  const Journal bring_up = all.first(split);
  const Journal client = all.subspan(split);
  std::vector<DemoFact> facts = {
      {Has(bring_up, WireEvent::kPowerOn), "the controller was powered"},
      PatchFact(bring_up),
      SpeedFact(bring_up, options.hub),
      {Has(bring_up, WireEvent::kSleepModeSet), "its sleep mode was set"},
      {Answered(client, opcodes::kReset) != nullptr && Answered(client, opcodes::kReadLocalVersion) != nullptr,
       "the client's Reset and Read Local Version were answered"},
      AddressFact(client, options.provision_address ? options.provisioned_address : options.address),
      ScanFact(client),
  };
  if (options.hub) {
    facts.insert(facts.begin() + 2, BatchFact(DownloadIn({bring_up.begin(), bring_up.end()}, true)));
  }
  // With faults ordered, bytes may well be lost; what counts is that everything came through all the same.
  if (options.faults.empty()) facts.push_back(CleanFact(all));
  return facts;
}

}  // namespace bthal::tool
