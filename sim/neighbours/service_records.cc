#include "sim/neighbours/service_records.h"

#include <algorithm>
#include <map>
#include <utility>

namespace bthal::sim {
namespace {

constexpr uint8_t kErrorResponse = 0x01;
constexpr uint8_t kSearchRequest = 0x02;
constexpr uint8_t kAttributeRequest = 0x04;
constexpr uint8_t kSearchAttributeRequest = 0x06;
constexpr unsigned kInvalidHandle = 0x0002;
constexpr unsigned kInvalidSyntax = 0x0003;
constexpr unsigned kInvalidContinuation = 0x0005;
constexpr size_t kMostAtOnce = 512;

void PutNet16(Bytes& bytes, unsigned value) {
  Put8(bytes, value >> 8 & 0xFF);
  Put8(bytes, value & 0xFF);
}
void PutNet32(Bytes& bytes, uint32_t value) {
  PutNet16(bytes, value >> 16);
  PutNet16(bytes, value & 0xFFFF);
}
unsigned GetNet16(const uint8_t* at) { return static_cast<unsigned>(at[0] << 8 | at[1]); }
uint32_t GetNet32(const uint8_t* at) { return GetNet16(at) << 16 | GetNet16(at + 2); }

// Data elements: a byte of type and size, then the value.
Bytes Number16(unsigned value) {
  Bytes element{0x09};
  PutNet16(element, value);
  return element;
}
Bytes Number32(uint32_t value) {
  Bytes element{0x0A};
  PutNet32(element, value);
  return element;
}
Bytes Uuid(const Bytes& uuid) {
  Bytes element{static_cast<uint8_t>(uuid.size() == 2 ? 0x19 : 0x1C)};
  PutAll(element, uuid);
  return element;
}
Bytes Text(const std::string& text) {
  Bytes element{0x25, static_cast<uint8_t>(text.size())};
  element.insert(element.end(), text.begin(), text.end());
  return element;
}
Bytes Sequence(std::initializer_list<Bytes> elements) {
  Bytes inner;
  for (const Bytes& element : elements) PutAll(inner, element);
  Bytes sequence{0x36};
  PutNet16(sequence, static_cast<unsigned>(inner.size()));
  PutAll(sequence, inner);
  return sequence;
}

// A UUID of 2, 4 or 16 bytes, in full; empty if it is none.
Bytes FullUuid(const Bytes& uuid) {
  static const Bytes base{0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0x80, 0x5F, 0x9B, 0x34, 0xFB};
  if (uuid.size() == 16) return uuid;
  if (uuid.size() != 2 && uuid.size() != 4) return {};
  Bytes full(4 - uuid.size(), 0);
  PutAll(full, uuid);
  PutAll(full, base);
  return full;
}

struct Record {
  uint32_t handle;
  std::vector<Bytes> uuids;  // by which it can be found
  std::map<unsigned, Bytes> attributes;

  bool Has(const Bytes& uuid) const {
    return std::any_of(uuids.begin(), uuids.end(), [&](const Bytes& own) { return FullUuid(own) == FullUuid(uuid); });
  }
};

const Bytes kL2cap{0x01, 0x00};
const Bytes kPublicBrowseRoot{0x10, 0x02};
const Bytes kDeviceInformation{0x12, 0x00};
const Bytes kEchoClass{0x22, 0x5A, 0x22, 0x01, 0x1F, 0x8E, 0x4C, 0x4A, 0x9D, 0x3B, 0x65, 0x63, 0x68, 0x6F, 0x00, 0x01};

const std::vector<Record>& Records() {
  constexpr uint32_t kEcho = 0x00010000;
  constexpr uint32_t kMaker = 0x00010001;
  static const auto& records = *new std::vector<Record>{
      {kEcho,
       {kL2cap, kPublicBrowseRoot, kEchoClass},
       {{0x0000, Number32(kEcho)},
        {0x0001, Sequence({Uuid(kEchoClass)})},
        {0x0004, Sequence({Sequence({Uuid(kL2cap), Number16(kEchoService)})})},
        {0x0005, Sequence({Uuid(kPublicBrowseRoot)})},
        {0x0100, Text("Echo")}}},
      {kMaker,
       {kPublicBrowseRoot, kDeviceInformation},
       {{0x0000, Number32(kMaker)},
        {0x0001, Sequence({Uuid(kDeviceInformation)})},
        {0x0005, Sequence({Uuid(kPublicBrowseRoot)})},
        {0x0200, Number16(0x0103)},
        {0x0201, Number16(0xFFFF)},
        {0x0202, Number16(0x0001)},
        {0x0203, Number16(0x0001)},
        {0x0204, {0x28, 1}},
        {0x0205, Number16(0x0001)}}},
  };
  return records;
}

// Reads elements one after the other; fails for good at the first that it cannot read.
class Reader {
 public:
  explicit Reader(Bytes bytes) : bytes_(std::move(bytes)) {}

  bool ok() const { return ok_; }
  bool done() const { return !ok_ || at_ == bytes_.size(); }
  unsigned Net16() { return Take(2) ? GetNet16(&bytes_[at_ - 2]) : 0; }
  uint32_t Net32() { return Take(4) ? GetNet32(&bytes_[at_ - 4]) : 0; }
  Bytes Rest() { return Part(bytes_, std::exchange(at_, bytes_.size())); }
  // One element's first byte and its value.
  std::pair<uint8_t, Bytes> Element() {
    if (!Take(1)) return {};
    const uint8_t head = bytes_[at_ - 1];
    size_t size = size_t{1} << (head & 7);
    if ((head & 7) == 5) size = Take(1) ? bytes_[at_ - 1] : 0;
    if ((head & 7) == 6) size = Net16();
    if ((head & 7) == 7) ok_ = false;
    return Take(size) ? std::pair(head, Part(bytes_, at_ - size, size)) : std::pair<uint8_t, Bytes>();
  }
  Reader Inner() {
    const auto [head, value] = Element();
    Reader inner(value);
    inner.ok_ = ok_ = ok_ && head >> 3 == 6;
    return inner;
  }

 private:
  bool Take(size_t size) {
    ok_ = ok_ && bytes_.size() - at_ >= size;
    if (ok_) at_ += size;
    return ok_;
  }

  Bytes bytes_;
  size_t at_ = 0;
  bool ok_ = true;
};

// The records that have all these UUIDs.
std::vector<const Record*> Search(Reader pattern) {
  std::vector<const Record*> found;
  for (const Record& record : Records()) found.push_back(&record);
  while (!pattern.done()) {
    const Bytes uuid = pattern.Element().second;
    std::erase_if(found, [&](const Record* record) { return !record->Has(uuid); });
  }
  return found;
}

// The attributes of a record that are wanted: a sequence of numbers and values.
Bytes Wanted(const Record& record, Reader ids) {
  std::map<unsigned, Bytes> wanted;
  while (!ids.done()) {
    const Bytes id = ids.Element().second;
    if (id.size() != 2 && id.size() != 4) continue;
    const unsigned first = GetNet16(id.data());
    const unsigned last = id.size() == 4 ? GetNet16(&id[2]) : first;
    for (const auto& [number, value] : record.attributes) {
      if (number >= first && number <= last) wanted[number] = value;
    }
  }
  Bytes list;
  for (const auto& [number, value] : wanted) {
    PutAll(list, Number16(number));
    PutAll(list, value);
  }
  return Sequence({list});
}

struct Reply {
  uint8_t code;
  Bytes parameters;
};

Reply Error(unsigned reason) {
  Reply reply{kErrorResponse, {}};
  PutNet16(reply.parameters, reason);
  return reply;
}

//   size | part of the lists | continuation: its size, and where the next part begins
Reply Lists(uint8_t request, const Bytes& lists, unsigned most, const Bytes& continuation) {
  constexpr uint8_t kContinuationSize = 2;
  size_t at = 0;
  if (continuation.size() == 1 + kContinuationSize) at = GetNet16(&continuation[1]);
  if (at > lists.size() || continuation.empty()) return Error(kInvalidContinuation);
  const Bytes part = Part(lists, at, std::min<size_t>(most, kMostAtOnce));
  Reply reply{static_cast<uint8_t>(request + 1), {}};
  PutNet16(reply.parameters, static_cast<unsigned>(part.size()));
  PutAll(reply.parameters, part);
  at += part.size();
  Put8(reply.parameters, at == lists.size() ? 0 : kContinuationSize);
  if (at != lists.size()) PutNet16(reply.parameters, static_cast<unsigned>(at));
  return reply;
}

//   pattern | most records | continuation
Reply SearchAnswer(Reader reader) {
  const std::vector<const Record*> found = Search(reader.Inner());
  const size_t count = std::min<size_t>(reader.Net16(), found.size());
  if (!reader.ok()) return Error(kInvalidSyntax);
  Reply reply{kSearchRequest + 1, {}};
  PutNet16(reply.parameters, static_cast<unsigned>(count));
  PutNet16(reply.parameters, static_cast<unsigned>(count));
  for (size_t i = 0; i < count; ++i) PutNet32(reply.parameters, found[i]->handle);
  Put8(reply.parameters, 0);
  return reply;
}

//   record | most bytes | attributes | continuation
Reply AttributeAnswer(Reader reader) {
  const uint32_t handle = reader.Net32();
  const unsigned most = reader.Net16();
  const Reader ids = reader.Inner();
  if (!reader.ok()) return Error(kInvalidSyntax);
  for (const Record& record : Records()) {
    if (record.handle == handle) return Lists(kAttributeRequest, Wanted(record, ids), most, reader.Rest());
  }
  return Error(kInvalidHandle);
}

//   pattern | most bytes | attributes | continuation
Reply SearchAttributeAnswer(Reader reader) {
  const std::vector<const Record*> found = Search(reader.Inner());
  const unsigned most = reader.Net16();
  const Reader ids = reader.Inner();
  if (!reader.ok()) return Error(kInvalidSyntax);
  Bytes lists;
  for (const Record* record : found) PutAll(lists, Wanted(*record, ids));
  return Lists(kSearchAttributeRequest, Sequence({lists}), most, reader.Rest());
}

Reply ReplyTo(uint8_t code, Reader reader) {
  switch (code) {
    case kSearchRequest:
      return SearchAnswer(std::move(reader));
    case kAttributeRequest:
      return AttributeAnswer(std::move(reader));
    case kSearchAttributeRequest:
      return SearchAttributeAnswer(std::move(reader));
    default:
      return Error(kInvalidSyntax);
  }
}

}  // namespace

//   code | transaction, 16 bits | size, 16 bits | parameters
Bytes ServiceRecordsAnswer(const Bytes& request) {
  constexpr size_t kHeader = 5;
  if (request.size() < kHeader) return {};
  const bool whole = GetNet16(&request[3]) + kHeader == request.size();
  const Reply reply = whole ? ReplyTo(request[0], Reader(Part(request, kHeader))) : Error(kInvalidSyntax);
  Bytes answer{reply.code, request[1], request[2]};
  PutNet16(answer, static_cast<unsigned>(reply.parameters.size()));
  PutAll(answer, reply.parameters);
  return answer;
}

}  // namespace bthal::sim
