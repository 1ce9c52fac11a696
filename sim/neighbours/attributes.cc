#include "sim/neighbours/attributes.h"

#include <algorithm>

namespace bthal::sim {
namespace {

constexpr uint8_t kErrorResponse = 0x01;
constexpr uint8_t kMtuRequest = 0x02;
constexpr uint8_t kFindInformationRequest = 0x04;
constexpr uint8_t kFindByTypeValueRequest = 0x06;
constexpr uint8_t kReadByTypeRequest = 0x08;
constexpr uint8_t kReadRequest = 0x0A;
constexpr uint8_t kReadBlobRequest = 0x0C;
constexpr uint8_t kReadByGroupTypeRequest = 0x10;
constexpr uint8_t kWriteRequest = 0x12;
constexpr uint8_t kNotification = 0x1B;
constexpr uint8_t kConfirmation = 0x1E;
constexpr uint8_t kWriteCommand = 0x52;
constexpr uint8_t kCommandFlag = 0x40;

constexpr uint8_t kInvalidHandle = 0x01;
constexpr uint8_t kReadNotPermitted = 0x02;
constexpr uint8_t kWriteNotPermitted = 0x03;
constexpr uint8_t kInvalidRequest = 0x04;
constexpr uint8_t kNotSupported = 0x06;
constexpr uint8_t kInvalidOffset = 0x07;
constexpr uint8_t kNotFound = 0x0A;
constexpr uint8_t kInvalidLength = 0x0D;
constexpr uint8_t kInsufficientEncryption = 0x0F;
constexpr uint8_t kUnsupportedGroup = 0x10;

constexpr size_t kMtu = 23;
constexpr size_t kLongestValue = kMtu - 3;
constexpr uint8_t kFullBattery = 100;

const Bytes kPrimaryService{0x00, 0x28};
const Bytes kCharacteristic{0x03, 0x28};
const Bytes kConfiguration{0x02, 0x29};

// What a request needs at least, without its opcode.
size_t LeastSize(uint8_t opcode) {
  switch (opcode) {
    case kMtuRequest:
    case kReadRequest:
    case kWriteRequest:
    case kWriteCommand:
      return 2;
    case kFindInformationRequest:
    case kReadBlobRequest:
      return 4;
    case kFindByTypeValueRequest:
    case kReadByTypeRequest:
    case kReadByGroupTypeRequest:
      return 6;
    default:
      return 0;
  }
}

Bytes Error(const Bytes& request, unsigned handle, uint8_t reason) {
  Bytes error{kErrorResponse, request[0]};
  Put16(error, handle);
  Put8(error, reason);
  return error;
}

// opcode | first handle | last handle | ...
struct Span {
  explicit Span(const Bytes& request) : first(GetLe16(&request[1])), last(GetLe16(&request[3])) {}
  bool ok() const { return first != 0 && first <= last; }
  bool Has(size_t index) const { return index + 1 >= first && index + 1 <= last; }

  size_t first;
  size_t last;
};

}  // namespace

Attributes::Attributes(const Neighbour& neighbour, const PeersLink* link) : link_(link) {
  constexpr uint8_t kMayRead = 0x02;
  constexpr uint8_t kMayWrite = 0x08;
  constexpr uint8_t kMayNotify = 0x10;
  static const Bytes access_service{0x00, 0x18};
  static const Bytes battery_service{0x0F, 0x18};
  static const Bytes note_service{0x01, 0x00, 0x65, 0x74, 0x6F, 0x6E, 0x3B, 0x9D,
                                  0x4A, 0x4C, 0x8E, 0x1F, 0x01, 0x22, 0x5A, 0x22};
  Bytes note = note_service;
  note[0] = 0x02;
  AddService(access_service);
  AddCharacteristic(kMayRead, {0x00, 0x2A}, Bytes(neighbour.name.begin(), neighbour.name.end()), kRead);
  AddCharacteristic(kMayRead, {0x01, 0x2A}, {0x00, 0x00}, kRead);
  AddService(battery_service);
  battery_ = AddCharacteristic(kMayRead | kMayNotify, {0x19, 0x2A}, {kFullBattery}, kRead);
  battery_wanted_ = attributes_.size();
  attributes_.push_back({kConfiguration, {0, 0}, kRead | kWrite});
  AddService(note_service);
  AddCharacteristic(kMayRead | kMayWrite, note, {}, kRead | kWrite | kEncrypted);
}

void Attributes::AddService(const Bytes& uuid) { attributes_.push_back({kPrimaryService, uuid}); }

//   properties | handle of the value | UUID
size_t Attributes::AddCharacteristic(uint8_t properties, const Bytes& uuid, Bytes value, uint8_t access) {
  Bytes declaration{properties};
  Put16(declaration, static_cast<unsigned>(attributes_.size() + 2));
  PutAll(declaration, uuid);
  attributes_.push_back({kCharacteristic, declaration});
  attributes_.push_back({uuid, std::move(value), access});
  return attributes_.size() - 1;
}

bool Attributes::notifies() const { return (attributes_[battery_wanted_].value[0] & 1) != 0; }

Bytes Attributes::Drain() {
  uint8_t& level = attributes_[battery_].value[0];
  level = level > 1 ? static_cast<uint8_t>(level - 1) : kFullBattery;
  if (!notifies()) return {};
  Bytes notification{kNotification};
  Put16(notification, static_cast<unsigned>(battery_ + 1));
  Put8(notification, level);
  return notification;
}

Bytes Attributes::Answer(const Bytes& request) {
  const uint8_t opcode = request[0];
  const bool known = LeastSize(opcode) != 0;
  // Requests are even; commands, responses, notifications and confirmations want no answer.
  const bool wants_answer = (opcode & 1) == 0 && (opcode & kCommandFlag) == 0 && opcode != kConfirmation;
  if (!known) return wants_answer ? Error(request, 0, kNotSupported) : Bytes{};
  if (request.size() - 1 < LeastSize(opcode)) return wants_answer ? Error(request, 0, kInvalidRequest) : Bytes{};
  switch (opcode) {
    case kMtuRequest:
      return {kMtuRequest + 1, kMtu, 0};
    case kFindInformationRequest:
      return FindInformation(request);
    case kFindByTypeValueRequest:
      return FindByTypeValue(request);
    case kReadByTypeRequest:
      return ReadByType(request);
    case kReadRequest:
      return Read(request, 0);
    case kReadBlobRequest:
      return Read(request, GetLe16(&request[3]));
    case kReadByGroupTypeRequest:
      return ReadByGroupType(request);
    case kWriteCommand:
      Write(request);
      return {};
    default:
      return Write(request);
  }
}

//   opcode | 1: short types, 2: long ones | handle and type, so many times
Bytes Attributes::FindInformation(const Bytes& request) const {
  const Span span(request);
  if (!span.ok()) return Error(request, GetLe16(&request[1]), kInvalidHandle);
  Bytes answer;
  size_t size = 0;
  for (size_t i = 0; i < attributes_.size(); ++i) {
    if (!span.Has(i)) continue;
    const Bytes& type = attributes_[i].type;
    if (answer.empty()) {
      size = type.size();
      answer = {kFindInformationRequest + 1, static_cast<uint8_t>(size == 2 ? 1 : 2)};
    }
    if (type.size() != size || answer.size() + 2 + size > kMtu) break;
    Put16(answer, static_cast<unsigned>(i + 1));
    PutAll(answer, type);
  }
  return answer.empty() ? Error(request, GetLe16(&request[1]), kNotFound) : answer;
}

size_t Attributes::ServiceEnd(size_t index) const {
  const auto next = std::find_if(attributes_.begin() + static_cast<ptrdiff_t>(index) + 1, attributes_.end(),
                                 [](const Attribute& attribute) { return attribute.type == kPrimaryService; });
  return static_cast<size_t>(next - attributes_.begin());
}

//   opcode | first and last handle, so many times
Bytes Attributes::FindByTypeValue(const Bytes& request) const {
  const Span span(request);
  if (!span.ok()) return Error(request, GetLe16(&request[1]), kInvalidHandle);
  Bytes answer{kFindByTypeValueRequest + 1};
  for (size_t i = 0; i < attributes_.size() && answer.size() + 4 <= kMtu; ++i) {
    if (!span.Has(i) || attributes_[i].type != Part(request, 5, 2) || attributes_[i].value != Part(request, 7))
      continue;
    Put16(answer, static_cast<unsigned>(i + 1));
    Put16(answer, static_cast<unsigned>(attributes_[i].type == kPrimaryService ? ServiceEnd(i) : i + 1));
  }
  return answer.size() == 1 ? Error(request, GetLe16(&request[1]), kNotFound) : answer;
}

//   opcode | size of each | handle and value, so many times
Bytes Attributes::ReadByType(const Bytes& request) const {
  const Span span(request);
  if (!span.ok()) return Error(request, GetLe16(&request[1]), kInvalidHandle);
  Bytes answer;
  for (size_t i = 0; i < attributes_.size(); ++i) {
    const Attribute& attribute = attributes_[i];
    if (!span.Has(i) || attribute.type != Part(request, 5)) continue;
    if (answer.empty() && (attribute.access & kEncrypted) != 0 && !link_->encrypted()) {
      return Error(request, static_cast<unsigned>(i + 1), kInsufficientEncryption);
    }
    const size_t size = 2 + std::min(attribute.value.size(), kMtu - 4);
    if (answer.empty()) answer = {kReadByTypeRequest + 1, static_cast<uint8_t>(size)};
    if (size != answer[1] || answer.size() + size > kMtu) break;
    Put16(answer, static_cast<unsigned>(i + 1));
    PutAll(answer, Part(attribute.value, 0, size - 2));
  }
  return answer.empty() ? Error(request, GetLe16(&request[1]), kNotFound) : answer;
}

Bytes Attributes::Read(const Bytes& request, size_t offset) const {
  const unsigned handle = GetLe16(&request[1]);
  if (handle == 0 || handle > attributes_.size()) return Error(request, handle, kInvalidHandle);
  const Attribute& attribute = attributes_[handle - 1];
  if ((attribute.access & kRead) == 0) return Error(request, handle, kReadNotPermitted);
  if ((attribute.access & kEncrypted) != 0 && !link_->encrypted()) {
    return Error(request, handle, kInsufficientEncryption);
  }
  if (offset > attribute.value.size()) return Error(request, handle, kInvalidOffset);
  Bytes answer{static_cast<uint8_t>(request[0] + 1)};
  PutAll(answer, Part(attribute.value, offset, kMtu - 1));
  return answer;
}

//   opcode | size of each | first and last handle and value, so many times
Bytes Attributes::ReadByGroupType(const Bytes& request) const {
  const Span span(request);
  if (!span.ok()) return Error(request, GetLe16(&request[1]), kInvalidHandle);
  if (Part(request, 5) != kPrimaryService) return Error(request, GetLe16(&request[1]), kUnsupportedGroup);
  Bytes answer;
  for (size_t i = 0; i < attributes_.size(); ++i) {
    if (!span.Has(i) || attributes_[i].type != kPrimaryService) continue;
    const size_t size = 4 + attributes_[i].value.size();
    if (answer.empty()) answer = {kReadByGroupTypeRequest + 1, static_cast<uint8_t>(size)};
    if (size != answer[1] || answer.size() + size > kMtu) break;
    Put16(answer, static_cast<unsigned>(i + 1));
    Put16(answer, static_cast<unsigned>(ServiceEnd(i)));
    PutAll(answer, attributes_[i].value);
  }
  return answer.empty() ? Error(request, GetLe16(&request[1]), kNotFound) : answer;
}

Bytes Attributes::Write(const Bytes& request) {
  const unsigned handle = GetLe16(&request[1]);
  if (handle == 0 || handle > attributes_.size()) return Error(request, handle, kInvalidHandle);
  Attribute& attribute = attributes_[handle - 1];
  if ((attribute.access & kWrite) == 0) return Error(request, handle, kWriteNotPermitted);
  if ((attribute.access & kEncrypted) != 0 && !link_->encrypted()) {
    return Error(request, handle, kInsufficientEncryption);
  }
  const Bytes value = Part(request, 3);
  if (attribute.type == kConfiguration ? value.size() != 2 : value.size() > kLongestValue) {
    return Error(request, handle, kInvalidLength);
  }
  attribute.value = value;
  return {kWriteRequest + 1};
}

}  // namespace bthal::sim
