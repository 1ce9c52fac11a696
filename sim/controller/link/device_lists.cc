#include "sim/controller/link/device_lists.h"

#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr uint8_t kListSize = 16;
constexpr size_t kEntrySize = 7;

Bytes Entry(const Bytes& parameters) { return Part(parameters, 0, kEntrySize); }

Answer Size(const Bytes& /*parameters*/) { return Answer::Complete({kSuccess, kListSize}); }

// Public, random, or anybody who advertises without an address.
bool AcceptTypeFits(const Bytes& parameters) { return parameters[0] <= 1 || parameters[0] == 0xFF; }

}  // namespace

void DeviceLists::AddTo(CommandTable* table) {
  AddAcceptList(table);
  AddResolvingList(table);
}

void DeviceLists::Reset() {
  accepted_.clear();
  resolved_.clear();
}

bool DeviceLists::Accepts(uint8_t address_type, const Bytes& address) const {
  Bytes entry{address_type};
  PutAll(entry, address);
  return accepted_.count(entry) != 0;
}

void DeviceLists::AddAcceptList(CommandTable* table) {
  table->Add(kLeReadAcceptListSize, {26, 6}, {}, Size);
  table->Add(kLeClearAcceptList, {26, 7}, {}, [this](const Bytes&) {
    accepted_.clear();
    return Answer();
  });
  table->Add(kLeAddToAcceptList, {27, 0}, {kEntrySize, {}, AcceptTypeFits}, [this](const Bytes& p) {
    if (accepted_.size() == kListSize && accepted_.count(p) == 0) return Answer::Complete({kMemoryExceeded});
    accepted_.insert(p);
    return Answer();
  });
  table->Add(kLeRemoveFromAcceptList, {27, 1}, {kEntrySize, {}, AcceptTypeFits}, [this](const Bytes& p) {
    accepted_.erase(p);
    return Answer();
  });
}

// Nobody around the board uses resolvable addresses: there is nothing to find with the list.
void DeviceLists::AddResolvingList(CommandTable* table) {
  table->Add(kLeAddToResolvingList, {34, 3}, {39, {Flag(0)}}, [this](const Bytes& p) {
    if (resolved_.size() == kListSize) return Answer::Complete({kMemoryExceeded});
    return Answer::Complete({resolved_.insert(Entry(p)).second ? kSuccess : kInvalidParameters});
  });
  table->Add(kLeRemoveFromResolvingList, {34, 4}, {kEntrySize, {Flag(0)}}, [this](const Bytes& p) {
    return Answer::Complete({resolved_.erase(p) != 0 ? kSuccess : kUnknownConnection});
  });
  table->Add(kLeClearResolvingList, {34, 5}, {}, [this](const Bytes&) {
    resolved_.clear();
    return Answer();
  });
  table->Add(kLeReadResolvingListSize, {34, 6}, {}, Size);
  auto no_address = [](const Bytes&) { return Answer::Complete({kUnknownConnection, 0, 0, 0, 0, 0, 0}); };
  table->Add(kLeReadPeerResolvableAddress, {34, 7}, {kEntrySize, {Flag(0)}}, no_address);
  table->Add(kLeReadLocalResolvableAddress, {35, 0}, {kEntrySize, {Flag(0)}}, no_address);
  table->Add(kLeSetPrivacyMode, {39, 2}, {kEntrySize + 1, {Flag(0), Flag(kEntrySize)}}, [this](const Bytes& p) {
    return Answer::Complete({resolved_.count(Entry(p)) != 0 ? kSuccess : kUnknownConnection});
  });
}

}  // namespace bthal::sim
