#include "bthal/hci/event_words.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <cctype>

#include "bthal/hci/commands.h"
#include "bthal/hci/hex.h"
#include "bthal/hci/words.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using Bytes = std::span<const uint8_t>;

constexpr size_t kHeader = 2;  // event code (1) | parameter length (1)

struct Name {
  uint8_t code;
  const char* words;
};

constexpr Name kEvents[] = {
    {0x01, "Inquiry Complete"},
    {0x02, "Inquiry Result"},
    {events::kConnectionComplete, "Connection Complete"},
    {0x04, "Connection Request"},
    {events::kDisconnectionComplete, "Disconnection Complete"},
    {0x08, "Encryption Change"},
    {events::kCommandComplete, "Command Complete"},
    {events::kCommandStatus, "Command Status"},
    {events::kHardwareError, "Hardware Error"},
    {events::kCompletedPackets, "Number Of Completed Packets"},
    {events::kLoopbackCommand, "Loopback Command"},
    {0x1A, "Data Buffer Overflow"},
    {0x22, "Inquiry Result With RSSI"},
    {0x2F, "Extended Inquiry Result"},
    {events::kLeMeta, "LE Meta"},
    {events::kVendor, "Vendor Event"},
};

constexpr Name kLeEvents[] = {
    {events::kLeConnectionComplete, "LE Connection Complete"},
    {events::kLeAdvertisingReport, "LE Advertising Report"},
    {0x03, "LE Connection Update Complete"},
    {0x04, "LE Read Remote Features Complete"},
    {events::kLeEnhancedConnectionComplete, "LE Enhanced Connection Complete"},
    {0x0D, "LE Extended Advertising Report"},
    {0x11, "LE Scan Timeout"},
    {0x12, "LE Advertising Set Terminated"},
};

constexpr Name kVendorEvents[] = {
    {0x57, "debug information"},
    {0x58, "quality report"},
};

constexpr Name kQualityReports[] = {
    {1, "monitor"},
    {2, "approaching LSTO"},
    {3, "A2DP choppy"},
    {4, "SCO choppy"},
    {5, "root inflammation"},
    {6, "energy"},
    {7, "connect fail"},
    {16, "vendor"},
    {19, "controller memory fragment"},
    {20, "sensor-hub memory fragment"},
    {32, "vendor trace"},
};

constexpr Name kStatuses[] = {
    {0x00, "success"},
    {0x01, "unknown command"},
    {0x02, "unknown connection"},
    {0x03, "hardware failure"},
    {0x04, "page timeout"},
    {0x05, "authentication failure"},
    {0x07, "memory exceeded"},
    {0x08, "connection timeout"},
    {0x09, "connection limit exceeded"},
    {0x0B, "connection already exists"},
    {0x0C, "command disallowed"},
    {0x0D, "rejected for limited resources"},
    {0x11, "unsupported feature or parameter value"},
    {0x12, "invalid parameters"},
    {0x13, "ended by the remote user"},
    {0x16, "ended by the local host"},
    {0x1F, "unspecified error"},
    {0x3A, "controller busy"},
    {0x3C, "advertising timeout"},
    {0x3E, "connection failed to be established"},
};

template <size_t N>
const char* Find(const Name (&table)[N], uint8_t code) {
  const auto* found = std::ranges::find(table, code, &Name::code);
  return found == std::end(table) ? nullptr : found->words;
}

// Text up to its first zero byte, with a dot for whatever a terminal must not see.
std::string Printable(Bytes bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    if (byte == 0) break;
    text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
  }
  return text;
}

// Return parameters after the status byte of a successful Command Complete.
std::string ReturnWords(uint16_t opcode, Bytes values) {
  switch (opcode) {
    case opcodes::kReadLocalVersion:  // HCI version (1) | revision (2) | LMP version (1) | manufacturer (2) | LMP
                                      // subversion (2)
      if (values.size() < 8) break;
      return StringPrintf(", HCI %u rev 0x%04X, LMP %u sub 0x%04X, maker 0x%04X", values[0], Le16(values, 1), values[3],
                          Le16(values, 6), Le16(values, 4));
    case opcodes::kReadBufferSize:  // ACL length (2) | SCO length (1) | ACL packets (2) | SCO packets (2)
      if (values.size() < 7) break;
      return StringPrintf(", %u ACL packets of %u bytes, %u SCO packets of %u bytes", Le16(values, 3), Le16(values, 0),
                          Le16(values, 5), values[2]);
    case opcodes::kLeReadBufferSize:  // LE ACL length (2) | LE ACL packets (1)
      if (values.size() < 3) break;
      return StringPrintf(", %u LE packets of %u bytes", values[2], Le16(values, 0));
    case opcodes::kReadBdAddr:
      if (values.size() < 6) break;
      return ", " + AddressWords(values.first(6));
    case opcodes::kReadLocalName:
      return ", \"" + Printable(values) + "\"";
    case opcodes::kReadChipId:
      if (values.empty()) break;
      return StringPrintf(", chip id %u", values[0]);
    default:
      break;
  }
  return "";
}

// Command Complete: code | length | credits (1) | opcode (2) | status (1) | return parameters
std::string CommandCompleteWords(Bytes event) {
  if (event.size() < 5) return "Command Complete, cut";
  const uint16_t opcode = Le16(event, 3);
  if (event.size() < 6) return "Command Complete: " + OpcodeWords(opcode);
  std::string text = "Command Complete: " + OpcodeWords(opcode) + ", " + StatusWords(event[5]);
  if (event[5] == 0) text += ReturnWords(opcode, event.subspan(6));
  return text;
}

// Command Status: code | length | status (1) | credits (1) | opcode (2)
std::string CommandStatusWords(Bytes event) {
  if (event.size() < 6) return "Command Status, cut";
  return "Command Status: " + OpcodeWords(Le16(event, 4)) + ", " + (event[2] == 0 ? "accepted" : StatusWords(event[2]));
}

// Advertising data: length (1) | type (1) | value, repeated. The complete or shortened local name, if there is one.
std::string AdvertisedName(Bytes data) {
  for (size_t at = 0; at + 1 < data.size() && data[at] != 0;) {
    const size_t length = data[at];
    if (at + 1 + length > data.size()) break;
    if (data[at + 1] == 0x08 || data[at + 1] == 0x09) return Printable(data.subspan(at + 2, length - 1));
    at += 1 + length;
  }
  return "";
}

// One report: event type (1) | address type (1) | address (6) | data length (1) | data | RSSI (1, signed)
std::string AdvertisingReportWords(Bytes event) {
  constexpr size_t kReport = 4;  // header (2) | subevent (1) | reports (1)
  if (event.size() < kReport) return ", cut";
  if (event[3] != 1) return StringPrintf(", %u reports", event[3]);
  const Bytes report = event.subspan(kReport);
  if (report.size() < 10 || report.size() < 10u + report[8]) return ", cut";
  const size_t length = report[8];
  std::string text = ": " + AddressWords(report.subspan(2, 6));
  text += report[1] == 0 ? " public" : " random";
  if (report[0] == 0x04) text += ", scan response";
  text += StringPrintf(", %d dBm", static_cast<int8_t>(report[9 + length]));
  const std::string name = AdvertisedName(report.subspan(9, length));
  if (!name.empty()) text += ", \"" + name + "\"";
  return text;
}

// Number Of Completed Packets: code | length | handles (1) | then handle (2) and count (2) for each
std::string CompletedPacketsWords(Bytes event) {
  std::string text;
  for (size_t at = 3; at + 4 <= event.size(); at += 4) {
    text += StringPrintf(", %u on handle 0x%03X", Le16(event, at + 2), Le16(event, at) & 0x0FFF);
  }
  return text;
}

// Vendor Event: code | length | sub-event (1) | for a quality report: report id (1) ...
std::string VendorEventWords(Bytes event) {
  if (event.size() < 3) return "";
  const char* words = Find(kVendorEvents, event[2]);
  std::string text = words != nullptr ? std::string(", ") + words : StringPrintf(", sub-event 0x%02X", event[2]);
  if (event[2] == 0x58 && event.size() > 3) {
    const char* report = Find(kQualityReports, event[3]);
    text += report != nullptr ? std::string(": ") + report : StringPrintf(": report %u", event[3]);
    if (event[3] == 5 && event.size() > 5) text += StringPrintf(", error 0x%02X, vendor 0x%02X", event[4], event[5]);
  }
  return text;
}

// Connection Complete and Disconnection Complete: code | length | status (1) | handle (2) | ...
std::string ConnectionWords(Bytes event, size_t status_at) {
  if (event.size() < status_at + 3) return ", cut";
  return ", " + StatusWords(event[status_at]) + StringPrintf(", handle 0x%03X", Le16(event, status_at + 1) & 0x0FFF);
}

std::string DetailWords(Bytes event) {
  switch (event[0]) {
    case events::kConnectionComplete:
    case events::kDisconnectionComplete:
      return ConnectionWords(event, kHeader);
    case events::kHardwareError:
      return event.size() > kHeader ? StringPrintf(", code 0x%02X", event[2]) : "";
    case events::kCompletedPackets:
      return CompletedPacketsWords(event);
    case events::kLoopbackCommand:
      return event.size() >= 4 ? ": " + OpcodeWords(Le16(event, 2)) : ", cut";
    case events::kVendor:
      return VendorEventWords(event);
    case events::kLeMeta:
      if (event.size() <= kHeader) return ", cut";
      if (event[2] == events::kLeConnectionComplete || event[2] == events::kLeEnhancedConnectionComplete)
        return ConnectionWords(event, kHeader + 1);
      if (event[2] == events::kLeAdvertisingReport) return AdvertisingReportWords(event);
      return "";
    default:
      return "";
  }
}

}  // namespace

std::string StatusWords(uint8_t status) {
  const char* words = Find(kStatuses, status);
  if (words == nullptr) return StringPrintf("status 0x%02X", status);
  return status == 0 ? words : StringPrintf("%s (0x%02X)", words, status);
}

std::optional<std::string> EventName(Bytes event) {
  if (event.empty()) return std::nullopt;
  const char* words = nullptr;
  if (event[0] == events::kLeMeta && event.size() > kHeader) words = Find(kLeEvents, event[kHeader]);
  if (words == nullptr) words = Find(kEvents, event[0]);
  if (words == nullptr) return std::nullopt;
  return words;
}

std::optional<uint16_t> AnsweredOpcode(Bytes event) {
  if (event.size() >= 5 && event[0] == events::kCommandComplete) return Le16(event, 3);
  if (event.size() >= 6 && event[0] == events::kCommandStatus) return Le16(event, 4);
  return std::nullopt;
}

std::optional<uint8_t> AnsweredStatus(Bytes event) {
  if (event.size() >= 6 && event[0] == events::kCommandComplete) return event[5];
  if (event.size() >= 6 && event[0] == events::kCommandStatus) return event[2];
  return std::nullopt;
}

std::string EventWords(Bytes event) {
  if (event.size() < kHeader) return "cut event";
  if (event[0] == events::kCommandComplete) return CommandCompleteWords(event);
  if (event[0] == events::kCommandStatus) return CommandStatusWords(event);
  const std::optional<std::string> name = EventName(event);
  std::string text = name ? *name : StringPrintf("event 0x%02X", event[0]);
  if (event[0] == events::kLeMeta && event.size() > kHeader && Find(kLeEvents, event[2]) == nullptr) {
    text += StringPrintf(", subevent 0x%02X", event[2]);
  }
  return text + DetailWords(event);
}

}  // namespace bthal::tool
