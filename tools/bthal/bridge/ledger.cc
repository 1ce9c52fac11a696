#include "bthal/bridge/ledger.h"

#include <android-base/stringprintf.h>

#include <cinttypes>

#include "bthal/hci/codes.h"
#include "bthal/hci/dictionary.h"
#include "bthal/hci/words.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;

// Longer than a host waits for an answer of its own.
constexpr std::chrono::seconds kOwedFor{5};

std::string Times(uint64_t count) { return count == 1 ? "once" : StringPrintf("%" PRIu64 " times", count); }

std::string Line(const std::string& what, uint64_t count) {
  return StringPrintf("  %s, %s\n", what.c_str(), Times(count).c_str());
}

std::string StatusWords(uint8_t status) {
  const FieldType* type = FindType("status");
  const std::string* words = type == nullptr ? nullptr : FindWords(*type, status);
  return words != nullptr ? *words : StringPrintf("status 0x%02X", status);
}

std::string Section(const char* heading, const std::string& lines) {
  return lines.empty() ? StringPrintf("%s: nothing\n", heading) : StringPrintf("%s:\n", heading) + lines;
}

}  // namespace

void Ledger::Sent(uint8_t kind, std::span<const uint8_t> packet) {
  const std::lock_guard lock(mutex_);
  if (kind != kCommand) {
    ++data_down_;
    return;
  }
  ++commands_;
  const uint16_t opcode = Le16(packet, 0);
  ++unanswered_[opcode];
  if (FindCommand(opcode) == nullptr) ++unknown_commands_[opcode];
}

bool Ledger::Received(uint8_t kind, std::span<const uint8_t> packet, Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  if (kind != kEvent) {
    ++data_up_;
    return true;
  }
  ++events_;
  if (!EventName(packet) && !packet.empty()) ++unknown_events_[packet[0]];
  const std::optional<uint16_t> opcode = AnsweredOpcode(packet);
  if (!opcode) return true;
  if (IsForPredecessor(*opcode, now)) return false;
  if (const auto owed = unanswered_.find(*opcode); owed != unanswered_.end() && --owed->second == 0) {
    unanswered_.erase(owed);
  }
  const std::optional<uint8_t> status = AnsweredStatus(packet);
  if (status && *status != 0) ++refused_[{*opcode, *status}];
  return true;
}

bool Ledger::IsForPredecessor(uint16_t opcode, Clock::time_point now) {
  const auto owed = owed_to_predecessors_.find(opcode);
  if (owed == owed_to_predecessors_.end() || now >= owed_until_) return false;
  if (--owed->second == 0) owed_to_predecessors_.erase(owed);
  return true;
}

void Ledger::NobodyThere() {
  const std::lock_guard lock(mutex_);
  ++nobody_there_;
}

void Ledger::DroppedReports(uint64_t count) {
  const std::lock_guard lock(mutex_);
  dropped_reports_ += count;
}

void Ledger::NewSession() {
  const std::lock_guard lock(mutex_);
  unanswered_.clear();
  owed_to_predecessors_.clear();
}

void Ledger::HostGone(Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  if (now >= owed_until_) owed_to_predecessors_.clear();
  owed_until_ = now + kOwedFor;
}

void Ledger::NewHost(Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  if (now < owed_until_) {
    for (const auto& [opcode, count] : unanswered_) owed_to_predecessors_[opcode] += count;
  }
  unanswered_.clear();
}

std::string Ledger::Report() const {
  const std::lock_guard lock(mutex_);
  std::string report = StringPrintf("%" PRIu64 " commands and %" PRIu64 " data packets to the controller, %" PRIu64
                                    " events and %" PRIu64 " data packets from it\n",
                                    commands_, data_down_, events_, data_up_);
  if (nobody_there_ != 0) report += Line("from it while no host was there", nobody_there_).substr(2);
  if (dropped_reports_ != 0)
    report += Line("advertising or inquiry report dropped, the host being slow", dropped_reports_).substr(2);
  std::string refused, unanswered, unknown;
  for (const auto& [what, count] : refused_) {
    refused += Line(OpcodeWords(what.first) + ": " + StatusWords(what.second), count);
  }
  for (const auto& [opcode, count] : unanswered_) unanswered += Line(OpcodeWords(opcode), count);
  for (const auto& [opcode, count] : unknown_commands_) unknown += Line(OpcodeWords(opcode), count);
  for (const auto& [code, count] : unknown_events_) unknown += Line(StringPrintf("event 0x%02X", code), count);
  return report + Section("Refused", refused) + Section("Unanswered", unanswered) + Section("Without a name", unknown);
}

}  // namespace bthal::tool
