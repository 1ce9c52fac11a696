#include "bthal/hci/commands.h"

#include <android-base/stringprintf.h>

#include <algorithm>

#include "bthal/hci/codes.h"
#include "bthal/hci/hex.h"
#include "bthal/hci/split_words.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;

constexpr NamedCommand kCommands[] = {
    {"reset", opcodes::kReset, "Reset", ""},
    {"read_local_version", opcodes::kReadLocalVersion, "Read Local Version", ""},
    {"read_local_commands", 0x1002, "Read Local Supported Commands", ""},
    {"read_local_features", 0x1003, "Read Local Supported Features", ""},
    {"read_buffer_size", opcodes::kReadBufferSize, "Read Buffer Size", ""},
    {"read_bd_addr", opcodes::kReadBdAddr, "Read BD_ADDR", ""},
    {"read_local_name", opcodes::kReadLocalName, "Read Local Name", ""},
    {"write_local_name", 0x0C13, "Write Local Name", "name_bytes:hex248"},
    {"set_event_mask", 0x0C01, "Set Event Mask", "mask:hex8=FFFFFFFFFFFFFF3F"},
    {"write_scan_enable", 0x0C1A, "Write Scan Enable", "enable:1=3"},
    {"write_class_of_device", 0x0C24, "Write Class Of Device", "class:3"},
    {"inquiry", 0x0401, "Inquiry", "lap:3=0x9E8B33 length:1=4 responses:1=0"},
    {"inquiry_cancel", 0x0402, "Inquiry Cancel", ""},
    {"create_connection", 0x0405, "Create Connection",
     "address:addr packet_types:2=0xCC18 page_scan_mode:1=2 reserved:1=0 clock_offset:2=0 role_switch:1=1"},
    {"disconnect", 0x0406, "Disconnect", "handle:2 reason:1=0x13"},
    {"read_rssi", 0x1405, "Read RSSI", "handle:2"},
    {"set_afh", 0x0C3F, "Set AFH Host Channel Classification", "map:hex10"},
    {"read_loopback_mode", 0x1801, "Read Loopback Mode", ""},
    {"write_loopback_mode", 0x1802, "Write Loopback Mode", "mode:1=1"},
    {"host_buffer_size", 0x0C33, "Host Buffer Size", "acl_bytes:2 sco_bytes:1 acl_packets:2 sco_packets:2"},
    {"le_set_event_mask", 0x2001, "LE Set Event Mask", "mask:hex8=FFFFFF0000000000"},
    {"le_read_buffer_size", opcodes::kLeReadBufferSize, "LE Read Buffer Size", ""},
    {"le_read_local_features", 0x2003, "LE Read Local Supported Features", ""},
    {"le_set_random_address", 0x2005, "LE Set Random Address", "address:addr"},
    {"le_advertising_parameters", 0x2006, "LE Set Advertising Parameters",
     "min:2=0x0800 max:2=0x0800 type:1=0 own_address_type:1=0 peer_address_type:1=0 peer:addr=00:00:00:00:00:00 "
     "channels:1=7 filter:1=0"},
    {"le_advertising_data", 0x2008, "LE Set Advertising Data", "length:1 data:hex31"},
    {"le_advertising_enable", opcodes::kLeAdvertisingEnable, "LE Set Advertising Enable", "enable:1=1"},
    {"le_scan_parameters", 0x200B, "LE Set Scan Parameters",
     "active:1=1 interval:2=0x0010 window:2=0x0010 own_address_type:1=0 filter:1=0"},
    {"le_scan_enable", opcodes::kLeScanEnable, "LE Set Scan Enable", "enable:1=1 filter_duplicates:1=0"},
    {"le_create_connection", 0x200D, "LE Create Connection",
     "interval:2=0x0060 window:2=0x0030 filter:1=0 peer_address_type:1=0 peer:addr own_address_type:1=0 "
     "min_interval:2=0x0018 max_interval:2=0x0028 latency:2=0 timeout:2=0x01F4 min_length:2=0 max_length:2=0"},
    {"le_create_connection_cancel", 0x200E, "LE Create Connection Cancel", ""},
    {"le_rand", 0x2018, "LE Rand", ""},
    {"le_read_supported_states", 0x201C, "LE Read Supported States", ""},
    {"le_extended_scan_enable", opcodes::kLeExtendedScanEnable, "LE Set Extended Scan Enable",
     "enable:1=1 filter_duplicates:1=0 duration:2=0 period:2=0"},
    {"vnd_write_bd_addr", opcodes::kWriteBdAddr, "Write BD_ADDR", "address:addr"},
    {"vnd_update_baud_rate", opcodes::kUpdateBaudRate, "Update Baud Rate", "reserved:2=0 rate:4"},
    {"vnd_set_sleep_mode", opcodes::kSetSleepMode, "Set Sleep Mode", "block:hex12=011818010101010000000000"},
    {"vnd_download_minidriver", 0xFC2E, "Download Minidriver", ""},
    {"vnd_write_ram", opcodes::kWriteRam, "Write RAM", "address:4 data:hex"},
    {"vnd_launch_ram", 0xFC4E, "Launch RAM", "address:4=0xFFFFFFFF"},
    {"vnd_read_chip_id", opcodes::kReadChipId, "Read Verbose Config And Version", ""},
    {"vnd_le_capabilities", 0xFD53, "LE Get Vendor Capabilities", ""},
    {"vnd_debug_info", 0xFD5B, "Controller Debug Info", ""},
    {"vnd_finder", 0xFD62, "Powered Off Finder", "form:1 data:hex"},
    {"vnd_check_otp", 0xFE2F, "Check OTP", "block:hex10=00000000000000000001"},
    {"vnd_set_download_config", 0xFE72, "Set Download Config", "block:hex2=0001"},
};

struct Parameter {
  std::string name;
  std::string size;
  std::optional<std::string> fallback;
};

std::vector<Parameter> Parameters(const NamedCommand& command) {
  std::vector<Parameter> parameters;
  for (const std::string& word : SplitWords(command.parameters)) {
    const size_t colon = word.find(':');
    const size_t equals = word.find('=', colon);
    Parameter parameter{word.substr(0, colon), word.substr(colon + 1, equals - colon - 1), std::nullopt};
    if (equals != std::string::npos) parameter.fallback = word.substr(equals + 1);
    parameters.push_back(std::move(parameter));
  }
  return parameters;
}

bool AppendNumber(size_t width, const std::string& text, std::vector<uint8_t>* out) {
  const uint64_t max = (uint64_t{1} << (8 * width)) - 1;
  const std::optional<uint64_t> value = ParseNumber(text, max);
  if (!value) return false;
  for (size_t i = 0; i < width; ++i) out->push_back(static_cast<uint8_t>(*value >> (8 * i)));
  return true;
}

bool AppendAddress(const std::string& text, std::vector<uint8_t>* out) {
  std::optional<std::vector<uint8_t>> bytes = ParseHex(text);
  if (!bytes || bytes->size() != 6) return false;
  out->insert(out->end(), bytes->rbegin(), bytes->rend());
  return true;
}

// `width` 0: as many bytes as there are.
bool AppendBytes(size_t width, const std::string& text, std::vector<uint8_t>* out) {
  std::optional<std::vector<uint8_t>> bytes = ParseHex(text);
  if (!bytes || (width != 0 && bytes->size() > width)) return false;
  if (width != 0) bytes->resize(width);
  out->insert(out->end(), bytes->begin(), bytes->end());
  return true;
}

bool AppendParameter(const Parameter& parameter, const std::string& text, std::vector<uint8_t>* out) {
  if (parameter.size == "addr") return AppendAddress(text, out);
  if (parameter.size.starts_with("hex")) {
    return AppendBytes(ParseNumber(parameter.size.substr(3), 255).value_or(0), text, out);
  }
  return AppendNumber(ParseNumber(parameter.size, 4).value_or(1), text, out);
}

std::string SizeWords(const std::string& size) {
  if (size == "addr") return "an address AA:BB:CC:DD:EE:FF";
  if (size == "hex") return "hex bytes";
  if (size.starts_with("hex")) return "at most " + size.substr(3) + " hex bytes";
  return "a number of " + size + (size == "1" ? " byte" : " bytes");
}

}  // namespace

std::span<const NamedCommand> NamedCommands() { return kCommands; }

const NamedCommand* FindCommand(std::string_view name) {
  const auto* found = std::ranges::find_if(kCommands, [&](const NamedCommand& it) { return it.name == name; });
  return found == std::end(kCommands) ? nullptr : found;
}

const NamedCommand* FindCommand(uint16_t opcode) {
  const auto* found = std::ranges::find(kCommands, opcode, &NamedCommand::opcode);
  return found == std::end(kCommands) ? nullptr : found;
}

std::string OpcodeWords(uint16_t opcode) {
  const NamedCommand* command = FindCommand(opcode);
  return command != nullptr ? command->words : StringPrintf("opcode 0x%04X", opcode);
}

std::optional<std::vector<uint8_t>> BuildCommand(const NamedCommand& command, std::span<const std::string> arguments,
                                                 std::string* error) {
  const std::vector<Parameter> parameters = Parameters(command);
  if (arguments.size() > parameters.size()) {
    *error = StringPrintf("too many parameters; usage: %s", Usage(command).c_str());
    return std::nullopt;
  }
  std::vector<uint8_t> packet = {static_cast<uint8_t>(command.opcode), static_cast<uint8_t>(command.opcode >> 8), 0};
  for (size_t i = 0; i < parameters.size(); ++i) {
    const Parameter& parameter = parameters[i];
    if (i >= arguments.size() && !parameter.fallback) {
      *error = StringPrintf("%s is missing; usage: %s", parameter.name.c_str(), Usage(command).c_str());
      return std::nullopt;
    }
    const std::string& text = i < arguments.size() ? arguments[i] : *parameter.fallback;
    if (!AppendParameter(parameter, text, &packet)) {
      *error = StringPrintf("%s: %s must be %s, not '%s'", command.name, parameter.name.c_str(),
                            SizeWords(parameter.size).c_str(), text.c_str());
      return std::nullopt;
    }
  }
  constexpr size_t kHeader = 3;
  if (packet.size() - kHeader > 255) {
    *error = StringPrintf("%s: %zu bytes of parameters; a command carries at most 255", command.name,
                          packet.size() - kHeader);
    return std::nullopt;
  }
  packet[2] = static_cast<uint8_t>(packet.size() - kHeader);
  return packet;
}

std::string Usage(const NamedCommand& command) {
  std::string text = command.name;
  for (const Parameter& parameter : Parameters(command)) {
    text += parameter.fallback ? " [" + parameter.name + "=" + *parameter.fallback + "]" : " " + parameter.name;
  }
  return text;
}

}  // namespace bthal::tool
