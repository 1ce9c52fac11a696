#include "bthal/hci/decode.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <bit>

#include "bthal/hci/codes.h"
#include "bthal/hci/framing.h"
#include "bthal/hci/hex.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using Base = FieldType::Base;
using Bytes = std::span<const uint8_t>;
using Values = std::vector<FieldValue>;

uint64_t ReadNumber(Bytes bytes, bool is_signed) {
  uint64_t number = 0;
  for (size_t i = 0; i < bytes.size(); ++i) number |= uint64_t{bytes[i]} << (8 * i);
  const size_t bits = 8 * bytes.size();
  if (is_signed && bits < 64 && (number >> (bits - 1) & 1) != 0) number |= ~uint64_t{0} << bits;
  return number;
}

class FieldDecoder {
 public:
  explicit FieldDecoder(Bytes bytes) : bytes_(bytes) {}

  Values Decode(std::span<const Field> fields) {
    Values values;
    for (const Field& field : fields) {
      if (field.optional && at_ == bytes_.size()) break;
      FieldValue value;
      value.field = &field;
      if (!(field.type.base == Base::kElements ? ReadElements(field, values, &value) : Read(field, values, &value))) {
        if (!value.elements.empty()) values.push_back(std::move(value));
        break;
      }
      values.push_back(std::move(value));
    }
    return values;
  }

  size_t used() const { return at_; }
  const std::string& problem() const { return problem_; }

 private:
  size_t Left() const { return bytes_.size() - at_; }

  // How many bytes, or elements: what an earlier value says.
  static size_t Count(const Field& field, const Values& values) {
    const auto counter = std::ranges::find(values, field.count, [](const FieldValue& it) { return it.field->name; });
    if (counter == values.end()) return 0;
    return field.masked ? static_cast<size_t>(std::popcount(counter->number)) : static_cast<size_t>(counter->number);
  }

  bool Read(const Field& field, const Values& values, FieldValue* value) {
    const bool to_the_end = field.counted && field.count.empty();
    const size_t counted = field.counted && !to_the_end ? Count(field, values) : field.type.width;
    const size_t width = field.type.width != 0 ? field.type.width : to_the_end ? Left() : counted;
    if (width > Left()) {
      problem_ = StringPrintf("cut in %s: %zu byte%s needed, %zu there", field.name.c_str(), width,
                              width == 1 ? "" : "s", Left());
      return false;
    }
    const Bytes bytes = bytes_.subspan(at_, width);
    at_ += width;
    if (field.type.base == Base::kNumber) {
      value->number = ReadNumber(bytes, field.type.is_signed);
      return true;
    }
    value->bytes = bytes.first(to_the_end ? width : std::min(counted, width));
    if (field.type.width == 0 || counted <= width) return true;
    problem_ =
        StringPrintf("%s says %zu, %s has room for %zu", field.count.c_str(), counted, field.name.c_str(), width);
    return false;
  }

  bool ReadElements(const Field& field, const Values& values, FieldValue* value) {
    const bool to_the_end = field.count.empty();
    const size_t count = to_the_end ? 0 : Count(field, values);
    while (to_the_end ? Left() != 0 : value->elements.size() < count) {
      value->elements.push_back(Decode(field.elements));
      if (problem_.empty()) continue;
      problem_ = StringPrintf("%s[%zu]: ", field.name.c_str(), value->elements.size() - 1) + problem_;
      return false;
    }
    return true;
  }

  const Bytes bytes_;
  size_t at_ = 0;
  std::string problem_;
};

// What is done with parameters that nobody knows.
std::span<const Field> UnknownFields() {
  static const auto& field = *new Field([] {
    Field bytes;
    bytes.name = "parameters";
    bytes.type.base = Base::kBytes;
    bytes.counted = true;
    bytes.optional = true;
    return bytes;
  }());
  return {&field, 1};
}

// What an unknown command returns begins with a status all the same.
std::span<const Field> UnknownReturns() {
  static const auto& fields = *new std::vector<Field>{FindCommand(opcodes::kReset)->returns[0], UnknownFields()[0]};
  return fields;
}

// The parameters that are there, as many as there should be.
Bytes Parameters(uint8_t kind, Bytes packet) {
  const size_t header = HeaderSize(kind);
  return packet.subspan(header, std::min(SaidLength(kind, packet), packet.size() - header));
}

void AddProblem(const std::string& problem, Decoded* decoded) {
  if (!decoded->problem.empty() && !problem.empty()) decoded->problem += "; ";
  decoded->problem += problem;
}

void Append(std::span<const Field> fields, Bytes bytes, Decoded* decoded) {
  size_t used = 0;
  std::string problem;
  Values values = DecodeFields(fields, bytes, &used, &problem);
  decoded->values.insert(decoded->values.end(), values.begin(), values.end());
  if (problem.empty() && used < bytes.size()) {
    problem = StringPrintf("%zu more than it has: ", bytes.size() - used) + Hex(bytes.subspan(used), 16);
  }
  AddProblem(problem, decoded);
}

// Behind a Command Complete's opcode. A command that has failed need not return more than its status.
void AppendReturns(uint16_t opcode, Bytes bytes, Decoded* decoded) {
  const Entry* command = FindCommand(opcode);
  std::span<const Field> returns = command != nullptr ? std::span(command->returns) : UnknownReturns();
  const bool failed = !bytes.empty() && bytes[0] != 0;
  if (failed && bytes.size() == 1) returns = returns.first(std::min<size_t>(returns.size(), 1));
  Append(returns, bytes, decoded);
}

}  // namespace

Values DecodeFields(std::span<const Field> fields, Bytes bytes, size_t* used, std::string* problem) {
  FieldDecoder decoder(bytes);
  Values values = decoder.Decode(fields);
  *used = decoder.used();
  *problem = decoder.problem();
  return values;
}

Decoded DecodeCommand(Bytes packet) {
  Decoded decoded{"cut command", {}, FramingProblem(kCommand, packet)};
  if (packet.size() < HeaderSize(kCommand)) return decoded;
  const Entry* command = FindCommand(Le16(packet, 0));
  decoded.title = OpcodeWords(Le16(packet, 0));
  Append(command != nullptr ? std::span(command->parameters) : UnknownFields(), Parameters(kCommand, packet), &decoded);
  return decoded;
}

Decoded DecodeEvent(Bytes packet) {
  Decoded decoded{"cut event", {}, FramingProblem(kEvent, packet)};
  if (packet.size() < HeaderSize(kEvent)) return decoded;
  Bytes parameters = Parameters(kEvent, packet);
  const std::vector<const Entry*> known = FindEvents(packet.first(HeaderSize(kEvent) + parameters.size()));
  if (known.empty()) {
    decoded.title = StringPrintf("event 0x%02X", packet[0]);
    Append(UnknownFields(), parameters, &decoded);
    return decoded;
  }
  const Entry& event = *known.front();
  decoded.title = event.words;
  parameters = parameters.subspan(event.code.size() - 1);
  constexpr size_t kAnswerHeader = 3;  // credits (1) | opcode (2)
  if (packet[0] == events::kCommandComplete && parameters.size() >= kAnswerHeader) {
    Append(event.parameters, parameters.first(kAnswerHeader), &decoded);
    AppendReturns(Le16(parameters, 1), parameters.subspan(kAnswerHeader), &decoded);
  } else {
    Append(event.parameters, parameters, &decoded);
  }
  return decoded;
}

}  // namespace bthal::tool
