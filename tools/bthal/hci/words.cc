#include "bthal/hci/words.h"

#include <android-base/stringprintf.h>

#include <algorithm>

#include "bthal/hci/advertising.h"
#include "bthal/hci/data_packet.h"
#include "bthal/hci/decode.h"
#include "bthal/hci/framing.h"
#include "bthal/hci/hex.h"
#include "bthal/hci/values.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using Base = FieldType::Base;
using InLine = FieldType::InLine;
using Values = std::span<const FieldValue>;

std::string BriefText(const FieldValue& value) {
  switch (value.field->type.base) {
    case Base::kNumber:
      return NumberText(value.field->type, value.number, /*brief=*/true);
    case Base::kAddress:
      return AddressWords(value.bytes);
    case Base::kText:
      return QuotedText(value.bytes);
    case Base::kAdvertising:
      return AdvertisedName(value.bytes);
    default:
      return StringPrintf("%zu bytes", value.bytes.size());
  }
}

std::string BriefName(const Field& field) {
  if (field.type.name == "connection_handle") return "handle";
  std::string name = field.name;
  std::ranges::replace(name, '_', ' ');
  return name;
}

bool IsAddressType(const FieldValue& value) { return value.field->type.name == "address_type"; }

void AppendBrief(const Values& values, const char* between, std::string* text);

// Of many elements only the first ones.
void AppendElements(const FieldValue& value, const char* between, std::string* text) {
  constexpr size_t kMost = 3;
  const size_t count = std::min(kMost, value.elements.size());
  const size_t before = text->size();
  for (size_t i = 0; i < count; ++i) AppendBrief(value.elements[i], i == 0 ? between : "; ", text);
  if (count < value.elements.size() && text->size() > before) {
    *text += StringPrintf("; ... (+%zu)", value.elements.size() - count);
  }
}

void AppendBrief(const Values& values, const char* between, std::string* text) {
  for (size_t i = 0; i < values.size(); ++i) {
    const FieldValue& value = values[i];
    const FieldType& type = value.field->type;
    if (type.base == Base::kElements) AppendElements(value, between, text);
    if (type.in_line == InLine::kNo) continue;
    std::string piece = BriefText(value);
    if (piece.empty()) continue;
    if (type.in_line == InLine::kNamed) piece.insert(0, BriefName(*value.field) + " ");
    // An address alone says little.
    if (type.base == Base::kAddress && i > 0 && IsAddressType(values[i - 1])) {
      piece.append(" ").append(BriefText(values[i - 1]));
    }
    *text += between;
    *text += piece;
    between = ", ";
  }
}

Decoded Decode(uint8_t kind, std::span<const uint8_t> packet) {
  return kind == kCommand ? DecodeCommand(packet) : DecodeEvent(packet);
}

std::string WholeText(const FieldValue& value) {
  if (value.field->type.base == Base::kNumber) return NumberText(value.field->type, value.number, /*brief=*/false);
  return value.field->type.base == Base::kBytes ? Hex(value.bytes) : BriefText(value);
}

void AppendLines(const Values& values, int depth, std::vector<std::string>* lines) {
  for (const FieldValue& value : values) {
    const std::string& name = value.field->name;
    if (value.field->type.base == Base::kAdvertising) {
      lines->push_back(FieldLine(depth, name, Hex(value.bytes)));
      for (const std::string& piece : AdvertisingLines(value.bytes)) lines->push_back(FieldLine(depth + 1, "", piece));
    } else if (value.field->type.base != Base::kElements) {
      lines->push_back(FieldLine(depth, name, WholeText(value)));
    }
    for (size_t i = 0; i < value.elements.size(); ++i) {
      lines->push_back(FieldLine(depth, name + "[" + std::to_string(i) + "]", ""));
      AppendLines(value.elements[i], depth + 1, lines);
    }
  }
}

std::string Title(const Decoded& decoded) {
  std::string text = decoded.title;
  for (const FieldValue& value : decoded.values) {
    if (value.field->type.name == "opcode") text += ": " + OpcodeWords(static_cast<uint16_t>(value.number));
  }
  return text;
}

// What must be read of it, whatever else is cut: what it is, and how it went.
std::string Head(uint8_t kind, std::span<const uint8_t> packet) {
  if (kind != kCommand && kind != kEvent) return "";
  const Decoded decoded = Decode(kind, packet);
  std::string text = Title(decoded);
  const auto status =
      std::ranges::find(decoded.values, "status", [](const FieldValue& it) { return it.field->type.name; });
  if (status != decoded.values.end()) AppendBrief(Values(&*status, 1), ", ", &text);
  return text;
}

void CollectHandles(const Values& values, std::vector<uint16_t>* handles) {
  for (const FieldValue& value : values) {
    if (value.field->type.name == "connection_handle") handles->push_back(value.number & 0x0FFF);
    for (const std::vector<FieldValue>& element : value.elements) CollectHandles(element, handles);
  }
}

// What a Command Complete returns behind a failure means nothing.
Values Meaningful(Values values) {
  for (size_t i = 0; i + 1 < values.size(); ++i) {
    if (values[i].field->type.name == "opcode" && values[i + 1].number != 0) return values.first(i + 2);
  }
  return values;
}

}  // namespace

std::string KindWord(uint8_t kind) {
  switch (kind) {
    case kCommand:
      return "command";
    case kAclData:
      return "acl";
    case kScoData:
      return "sco";
    case kEvent:
      return "event";
    case kIsoData:
      return "iso";
    case kThreadData:
      return "thread";
    default:
      return StringPrintf("type 0x%02X", kind);
  }
}

std::optional<std::string> EventName(std::span<const uint8_t> event) {
  const std::vector<const Entry*> known = FindEvents(event);
  return known.empty() ? std::nullopt : std::optional(known.front()->words);
}

std::optional<uint16_t> AnsweredOpcode(std::span<const uint8_t> event) {
  if (event.size() >= 5 && event[0] == events::kCommandComplete) return Le16(event, 3);
  if (event.size() >= 6 && event[0] == events::kCommandStatus) return Le16(event, 4);
  return std::nullopt;
}

std::optional<uint8_t> AnsweredStatus(std::span<const uint8_t> event) {
  if (event.size() >= 6 && event[0] == events::kCommandComplete) return event[5];
  if (event.size() >= 6 && event[0] == events::kCommandStatus) return event[2];
  return std::nullopt;
}

std::string PacketWords(uint8_t kind, std::span<const uint8_t> packet) {
  if (kind != kCommand && kind != kEvent) return DataWords(kind, packet);
  const Decoded decoded = Decode(kind, packet);
  std::string text = Title(decoded);
  AppendBrief(Meaningful(decoded.values), ", ", &text);
  return decoded.problem.empty() ? text : text + " (" + decoded.problem + ")";
}

std::string FittingWords(uint8_t kind, std::span<const uint8_t> packet, size_t room) {
  static const std::string kRest = " ...";
  std::string text = PacketWords(kind, packet);
  if (text.size() <= room) return text;
  const std::string problem = PacketProblem(kind, packet).empty() ? "" : " (malformed)";
  const std::string head = Head(kind, packet);
  const size_t kept = kRest.size() + problem.size();
  if (!text.starts_with(head) || head.size() + kept > room) return head + problem;
  const size_t blank = text.rfind(' ', room - kept);
  return text.substr(0, blank != text.npos && blank > head.size() ? blank : head.size()) + kRest + problem;
}

std::vector<uint16_t> ConnectionHandles(uint8_t kind, std::span<const uint8_t> packet) {
  std::vector<uint16_t> handles;
  if (kind == kCommand || kind == kEvent) {
    CollectHandles(Decode(kind, packet).values, &handles);
  } else if (kind != kThreadData && HeaderSize(kind) != 0 && packet.size() >= 2) {
    handles.push_back(Le16(packet, 0) & 0x0FFF);
  }
  return handles;
}

std::vector<std::string> PacketFields(uint8_t kind, std::span<const uint8_t> packet) {
  if (kind != kCommand && kind != kEvent) return DataFields(kind, packet);
  std::vector<std::string> lines;
  AppendLines(Decode(kind, packet).values, 0, &lines);
  return lines;
}

std::string PacketProblem(uint8_t kind, std::span<const uint8_t> packet) {
  return kind == kCommand || kind == kEvent ? Decode(kind, packet).problem : FramingProblem(kind, packet);
}

}  // namespace bthal::tool
