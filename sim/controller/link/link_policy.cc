// Who leads on a link, how often its ends meet, and when it counts as lost.
#include "sim/controller/link/link_commands.h"
#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr uint8_t kActive = 0;
constexpr uint8_t kSniff = 2;
constexpr size_t kAddressSize = 6;

//   handle | longest and shortest interval | attempt | timeout, 16 bits each
bool SniffFits(const Bytes& parameters) {
  const unsigned longest = GetLe16(&parameters[2]);
  const unsigned shortest = GetLe16(&parameters[4]);
  return longest % 2 == 0 && shortest % 2 == 0 && shortest <= longest;
}

Bytes Le16(uint16_t value) {
  Bytes bytes;
  Put16(bytes, value);
  return bytes;
}

}  // namespace

void LinkCommands::AddPolicy(CommandTable* table) {
  constexpr Range kPolicy = Word(2, 0, 0x000F);
  table->Add(kReadLinkPolicy, {5, 1}, {2}, [this](const Bytes& p) {
    const Link* const link = links_->Find(GetLe16(p.data()));
    return links_->OfLink(p, Le16(link == nullptr ? 0 : link->policy));
  });
  table->Add(kWriteLinkPolicy, {5, 2}, {4, {kPolicy}}, [this](const Bytes& p) {
    if (Link* const link = links_->Find(GetLe16(p.data()))) link->policy = GetLe16(&p[2]);
    return links_->OfLink(p, {});
  });
  table->Add(kReadSupervisionTimeout, {11, 0}, {2}, [this](const Bytes& p) {
    const Link* const link = links_->Find(GetLe16(p.data()));
    return links_->OfLink(p, Le16(link == nullptr ? 0 : link->supervision_timeout));
  });
  table->Add(kWriteSupervisionTimeout, {11, 1}, {4}, [this](const Bytes& p) {
    if (Link* const link = links_->Find(GetLe16(p.data()))) link->supervision_timeout = GetLe16(&p[2]);
    return links_->OfLink(p, {});
  });
}

//   status | handle | mode | interval
Answer LinkCommands::ChangeMode(const Bytes& parameters, uint8_t mode) {
  const Link* const link = links_->Find(GetLe16(parameters.data()));
  if (link != nullptr && (link->kind != LinkKind::kClassic || link->mode == mode)) {
    return Answer::Status(kCommandDisallowed);
  }
  return links_->ForLink(parameters, [this, mode](Link& there, const Bytes& asked) {
    there.mode = mode;
    Bytes event{kSuccess};
    Put16(event, there.handle);
    Put8(event, mode);
    Put16(event, mode == kSniff ? GetLe16(&asked[2]) : 0);
    outlet_->SendEvent(kModeChangeEvent, event);
  });
}

void LinkCommands::AddModes(CommandTable* table) {
  constexpr uint32_t kShortest = 2;
  constexpr uint32_t kLongest = 0xFFFE;
  table->AddByStatus(
      kSniffMode, {4, 2},
      {10,
       {Word(2, kShortest, kLongest), Word(4, kShortest, kLongest), Word(6, 1, 0x7FFF), Word(8, 0, 0x7FFF)},
       SniffFits},
      [this](const Bytes& p) { return ChangeMode(p, kSniff); });
  table->AddByStatus(kExitSniffMode, {4, 3}, {2}, [this](const Bytes& p) { return ChangeMode(p, kActive); });
}

void LinkCommands::AddRoles(CommandTable* table) {
  table->Add(kRoleDiscovery, {4, 7}, {2}, [this](const Bytes& p) {
    const Link* const link = links_->Find(GetLe16(p.data()));
    return links_->OfLink(p, {link == nullptr ? uint8_t{0} : static_cast<uint8_t>(link->role)});
  });
  //   status | address | role
  table->AddByStatus(kSwitchRole, {5, 0}, {kAddressSize + 1, {Flag(kAddressSize)}}, [this](const Bytes& p) {
    Link* const link = links_->FindPeer(LinkKind::kClassic, Part(p, 0, kAddressSize));
    if (link == nullptr) return Answer::Status(kUnknownConnection);
    link->role = static_cast<Role>(p[kAddressSize]);
    return Answer::Status(kSuccess, [this, p] {
      Bytes event{kSuccess};
      PutAll(event, p);
      outlet_->SendEvent(kRoleChangeEvent, event);
    });
  });
}

}  // namespace bthal::sim
