// The dictionary of HCI: every row is made into a packet, taken apart again, and named by somebody else.
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include "bthal/hci/decode.h"
#include "bthal/hci/dictionary.h"
#include "bthal/hci/encode.h"
#include "bthal/hci/hex.h"
#include "bthal/hci/values.h"
#include "bthal/hci/words.h"
#include "bthal/show/snoop/capture_format.h"
#include "debug_central/catalogue.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal::tool {
namespace {

using namespace ::bthal::test;
using ::android::base::StringPrintf;
using Base = FieldType::Base;

using events::kCommandComplete;
using events::kCommandStatus;
using events::kLeMeta;
using events::kVendor;

// A value that a parameter takes, as it is written.
std::string Sample(const Field& field, bool mask) {
  const FieldType& type = field.type;
  switch (type.base) {
    case Base::kNumber:
      if (mask) return "3";
      if (type.words && !type.bits) return std::to_string(type.words->back().code);
      // Of what is written in hex one that means nothing to anybody.
      return std::to_string(type.least.value_or(type.hex ? 0x7E : 1));
    case Base::kAddress:
      return "C6:05:04:03:02:01";
    case Base::kText:
      return "ab";
    case Base::kAdvertising:
      return "020106";
    case Base::kBytes:
      return "0a0b";
    case Base::kElements:
      break;
  }
  std::vector<std::string> values;
  for (const Field& element : field.elements) {
    if (!IsCounter(field.elements, element)) values.push_back(Sample(element, false));
  }
  const std::string one = ::android::base::Join(values, '/');
  return one + "," + one;
}

std::vector<std::string> Samples(std::span<const Field> fields) {
  std::vector<std::string> arguments;
  for (const Field& field : fields) {
    if (IsCounter(fields, field)) continue;
    const bool mask = std::ranges::any_of(fields, [&](const Field& it) { return it.masked && it.count == field.name; });
    arguments.push_back(field.name + "=" + Sample(field, mask));
  }
  return arguments;
}

Bytes Encoded(std::span<const Field> fields, const std::vector<std::string>& arguments) {
  std::string error;
  const std::optional<Bytes> bytes = EncodeFields(fields, arguments, &error);
  EXPECT_TRUE(bytes) << error << ": " << ::android::base::Join(arguments, ' ');
  return bytes.value_or(Bytes{});
}

// What was taken apart, as it would be written again.
std::string Written(const FieldValue& value) {
  switch (value.field->type.base) {
    case Base::kNumber: {
      const size_t unused = 64 - 8 * value.field->type.width;
      return StringPrintf("!0x%llX", static_cast<unsigned long long>(value.number << unused >> unused));
    }
    case Base::kAddress:
      return AddressWords(value.bytes);
    case Base::kText:
      return std::string(value.bytes.begin(), std::ranges::find(value.bytes, 0));
    case Base::kElements:
      break;
    default:
      return ::android::base::StringReplace(Hex(value.bytes), " ", "", true);
  }
  std::vector<std::string> elements;
  for (const std::vector<FieldValue>& element : value.elements) {
    std::vector<std::string> values;
    for (const FieldValue& it : element) values.push_back(Written(it));
    elements.push_back(::android::base::Join(values, '/'));
  }
  return ::android::base::Join(elements, ',');
}

// The bytes of a sample, which are the same after they have been taken apart and put together.
Bytes RoundTrip(const std::string& row, std::span<const Field> fields) {
  const Bytes bytes = Encoded(fields, Samples(fields));
  size_t used = 0;
  std::string problem;
  std::vector<std::string> again;
  for (const FieldValue& value : DecodeFields(fields, bytes, &used, &problem)) {
    again.push_back(value.field->name + "=" + Written(value));
  }
  EXPECT_EQ(problem, "") << row;
  EXPECT_EQ(used, bytes.size()) << row;
  EXPECT_EQ(Hex(Encoded(fields, again)), Hex(bytes)) << row;
  // Cut anywhere, it says so, or has lost only what may be missing.
  for (size_t length = 0; length < bytes.size(); ++length) {
    const size_t read = (DecodeFields(fields, std::span(bytes).first(length), &used, &problem), used);
    EXPECT_LE(read, length) << row;
    EXPECT_TRUE(!problem.empty() || fields.back().optional || fields.back().counted) << row << " cut to " << length;
  }
  return bytes;
}

struct Packet {
  uint8_t kind = 0;
  Bytes bytes;
  std::string words;
  const char* label = nullptr;  // what tshark says in front of its name
  int code = 0;
};

Bytes Event(Bytes code, const Bytes& parameters) {
  code.insert(code.begin() + 1, static_cast<uint8_t>(code.size() - 1 + parameters.size()));
  return Joined({code, parameters});
}

// Each command, and what it returns; each event; each status.
std::vector<Packet> AllPackets() {
  std::vector<Packet> packets;
  for (const Entry& command : CommandEntries()) {
    const Bytes parameters = RoundTrip(command.words, command.parameters);
    const Bytes packet = Joined({command.code, {static_cast<uint8_t>(parameters.size())}, parameters});
    packets.push_back({kCommand, packet, command.words, "Command Opcode", command.opcode()});
    Bytes returns = RoundTrip(command.words, command.returns);
    if (!returns.empty()) returns[0] = 0;
    if (!command.finishing_event.empty()) continue;
    const Bytes answer = Joined({{1, command.code[0], command.code[1]}, returns});
    packets.push_back({kEvent, Event({kCommandComplete}, answer), command.words, "Command Opcode", command.opcode()});
  }
  for (const Entry& event : EventEntries()) {
    if (event.code[0] == kCommandComplete) continue;  // above
    const bool le = event.code[0] == kLeMeta && event.code.size() > 1;
    const Bytes bytes = Event(event.code, RoundTrip(event.words, event.parameters));
    const std::string& words = event.code[0] == kVendor ? "Vendor Event" : event.words;
    packets.push_back({kEvent, bytes, words, le ? "Sub Event" : "Event Code", event.code[le ? 1 : 0]});
  }
  for (const CodeWord& status : *FindType("command_status")->words) {
    if (status.words == "success") continue;  // it is called accepted here
    const auto code = static_cast<uint8_t>(status.code);
    packets.push_back({kEvent, Event({kCommandStatus}, {code, 1, 0x03, 0x0C}), status.words, "Status", code});
  }
  return packets;
}

std::string Btsnoop(const std::vector<Packet>& packets) {
  std::string file = CaptureHeader(CaptureFormat::kBtsnoop);
  for (const Packet& packet : packets) {
    const auto length = static_cast<uint32_t>(packet.bytes.size() + 1);
    file += CaptureRecord(CaptureFormat::kBtsnoop, {0, packet.kind == kEvent, packet.kind, length, packet.bytes});
  }
  return file;
}

// What tshark calls otherwise: older names, mostly.
const std::map<std::string, std::string> kOtherNames = {
    {"NOP", "No Operation"},
    {"Link Key Selection", "Master Link Key"},
    {"Park State", "Park Mode"},
    {"Exit Park State", "Exit Park Mode"},
    {"Write Local Name", "Change Local Name"},
    {"Read Transmit Power Level", "Read Tx Power Level"},
    {"Read Synchronous Flow Control Enable", "Read SCO Flow Control Enable"},
    {"Write Synchronous Flow Control Enable", "Write SCO Flow Control Enable"},
    {"Set Controller To Host Flow Control", "Set Host Controller To Host Flow Control"},
    {"Read Inquiry Response Transmit Power Level", "Read Inquiry Response Tx Power Level"},
    {"Write Inquiry Transmit Power Level", "Write Inquiry Tx Power Level"},
    {"Read LE Host Support", "Read LE Host Supported"},
    {"Write LE Host Support", "Write LE Host Supported"},
    {"Enable Implementation Under Test Mode", "Enable Device Under Test Mode"},
    {"LE Read Advertising Physical Channel Tx Power", "LE Read Advertising Channel Tx Power"},
    {"LE Set Advertising Enable", "LE Set Advertise Enable"},
    {"LE Enable Encryption", "LE Start Encryption"},
    {"Connection Complete", "Connect Complete"},
    {"Connection Request", "Connect Request"},
    {"Disconnection Complete", "Disconnect Complete"},
    {"Link Key Type Changed", "Master Link Key Complete"},
    {"Read Remote Supported Features Complete", "Read Remote Supported Features"},
    {"Disconnection Physical Link Complete", "Disconnect Physical Link Complete"},
    {"Disconnection Logical Link Complete", "Disconnect Logical Link Complete"},
    {"Vendor Event", "Vendor-Specific"},
    {"LE Directed Advertising Report", "LE Direct Advertising Report"},
    {"accepted", "Pending"},
    {"connection already exists", "ACL Connection Already Exists"},
    {"unsupported remote feature", "Unsupported Remote/LMP Feature"},
    {"advertising timeout", "Directed Advertising Timeout"},
    {"connection failed to be established/synchronization timeout", "Connection Failed to be Established"},
    {"coarse clock adjustment rejected",
     "Coarse Clock Adjustment Rejected but Will Try to Adjust Using Clock Dragging"},
};

// Words that took another's place, and what tshark says besides.
const std::pair<const char*, const char*> kOtherWords[] = {
    {"Peripheral", "Slave"}, {"Filter Accept List", "White List"}, {" [v1]", ""}};

// First and last opcode, or code, of those that tshark has no name for.
constexpr std::pair<int, int> kUnnamedCommands[] = {
    {0x0C82, 0x0C84}, {0x100D, 0x100F}, {0x207F, 0x209D}, {0xFC00, 0xFFFF}};
constexpr std::pair<int, int> kUnnamedEvents[] = {{0x59, 0x59}};
constexpr std::pair<int, int> kUnnamedLeEvents[] = {{0x24, 0x35}};
constexpr std::pair<int, int> kUnnamedStatuses[] = {{0x46, 0x48}};

template <size_t N>
bool Within(const std::pair<int, int> (&ranges)[N], int code) {
  return std::ranges::any_of(ranges, [&](const auto& range) { return range.first <= code && code <= range.second; });
}

bool HasName(const Packet& packet) {
  const std::string label = packet.label;
  if (label == "Command Opcode") return !Within(kUnnamedCommands, packet.code);
  if (label == "Sub Event") return !Within(kUnnamedLeEvents, packet.code);
  return label == "Status" ? !Within(kUnnamedStatuses, packet.code) : !Within(kUnnamedEvents, packet.code);
}

// Those of which tshark reads more, or fewer, bytes than they have.
const std::set<std::string> kMisread = {"NOP",
                                        "Truncated Page",
                                        "Read Clock",
                                        "Get MWS Transport Layer Configuration",
                                        "Flow Spec Modify",
                                        "Set Event Filter",
                                        "Host Number Of Completed Packets",
                                        "Write Page Scan Mode",
                                        "AMP Test"};

// What counts as equal: letters and digits, whatever their case.
std::string Normal(std::string name) {
  if (const auto other = kOtherNames.find(name); other != kOtherNames.end()) name = other->second;
  for (const auto& [word, other] : kOtherWords) name = ::android::base::StringReplace(name, word, other, true);
  std::erase_if(name, [](unsigned char c) { return std::isalnum(c) == 0; });
  std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
  return name;
}

// tshark's words on each packet.
std::vector<std::string> Dissected(const std::vector<Packet>& packets) {
  const TemporaryFile log;
  EXPECT_TRUE(::android::base::WriteStringToFile(Btsnoop(packets), log.path));
  const std::string text = test::RunProgram({"tshark", "-r", log.path, "-O", "bthci_cmd,bthci_evt"}).out;
  std::vector<std::string> pieces;
  for (size_t at = text.find("Frame "); at != text.npos;) {
    const size_t next = text.find("\nFrame ", at);
    pieces.push_back(text.substr(at, next - at));
    at = next == text.npos ? next : next + 1;
  }
  return pieces;
}

// Of "    Command Opcode: Reset (0x0c03)", what stands behind the label.
std::string Behind(const std::string& label, const std::string& text) {
  const std::string start = "\n    " + label + ": ";
  const size_t at = text.find(start);
  return at == text.npos ? "" : text.substr(at + start.size(), text.find('\n', at + 1) - at - start.size());
}

TEST(DictionaryTest, EveryRowIsReadBackAndHasTheNameThatTsharkGivesIt) {
  const std::vector<Packet> packets = AllPackets();
  const std::vector<std::string> dissected = Dissected(packets);
  ASSERT_EQ(dissected.size(), packets.size());
  for (size_t i = 0; i < packets.size(); ++i) {
    const Packet& packet = packets[i];
    EXPECT_EQ(PacketProblem(packet.kind, packet.bytes), "") << packet.words;
    const std::string named = Behind(packet.label, dissected[i]);
    const size_t bracket = named.rfind(" (0x");
    ASSERT_NE(bracket, named.npos) << packet.words << "\n" << dissected[i];
    EXPECT_EQ(std::stoi(named.substr(bracket + 2), nullptr, 16), packet.code) << packet.words;
    const std::string name = named.substr(0, bracket);
    EXPECT_EQ(Normal(name), HasName(packet) ? Normal(packet.words) : "unknown");
    const bool misread =
        dissected[i].find("Malformed") != dissected[i].npos || dissected[i].find("Unexpected") != dissected[i].npos;
    EXPECT_LE(misread, kMisread.contains(packet.words)) << dissected[i];
  }
}

// What a field is counted by stands in front of it, and a default is one.
void CheckFields(const std::string& row, std::span<const Field> fields) {
  for (const Field& field : fields) {
    const auto before = fields.first(static_cast<size_t>(&field - fields.data()));
    const auto same_name = [&](const std::string& name) { return std::ranges::count(before, name, &Field::name); };
    EXPECT_EQ(same_name(field.name), 0) << row << ": " << field.name;
    EXPECT_EQ(same_name(field.count), field.count.empty() ? 0 : 1) << row << ": " << field.name;
    if (field.fallback && !field.counted) Encoded({&field, 1}, {});
    CheckFields(row, field.elements);
  }
}

TEST(DictionaryTest, RowsAreUniqueAndComplete) {
  std::set<std::string> names;
  std::set<Bytes> codes;
  for (const Entry& command : CommandEntries()) {
    EXPECT_TRUE(codes.insert(command.code).second) << command.words;
    EXPECT_TRUE(names.insert(command.name).second) << command.words;
    for (const std::string& name : command.other_names) EXPECT_TRUE(names.insert(name).second) << name;
    CheckFields(command.words, command.parameters);
    CheckFields(command.words, command.returns);
    const std::string& event = command.finishing_event;
    EXPECT_TRUE(event.empty() || std::ranges::count(EventEntries(), event, &Entry::words) == 1) << command.words;
  }
  codes.clear();
  for (const Entry& event : EventEntries()) {
    EXPECT_TRUE(codes.insert(event.code).second) << event.words;
    CheckFields(event.words, event.parameters);
  }
}

TEST(DictionaryTest, TheServicesErrorsAreInItsOwnWords) {
  namespace debug = ::android::hardware::bluetooth::V1_1::qnlbtlinux::debug;
  const FieldType& kinds = *FindType("error_kind");
  EXPECT_EQ(kinds.words->size(), 53u);
  for (int code = 0; code <= 0xFF; ++code) {
    const std::string theirs = debug::ReasonTextOrName(static_cast<debug::BqrErrorCode>(code));
    const std::string* ours = FindWords(kinds, static_cast<uint64_t>(code));
    EXPECT_EQ(ours != nullptr ? *ours : "vendor error 0x", theirs.substr(0, ours != nullptr ? theirs.npos : 15));
  }
}

}  // namespace
}  // namespace bthal::tool
