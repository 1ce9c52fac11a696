// Pairing and encryption of classic links. Neighbours can neither show nor ask anything: they pair with whoever wants
// to, and with hosts that know of no simple pairing by a PIN.
#pragma once

#include <optional>

#include "sim/controller/command_table.h"
#include "sim/controller/link/links.h"
#include "sim/controller/outlet.h"
#include "sim/controller/settings.h"

namespace bthal::sim {

class ClassicSecurity {
 public:
  // All outlive it.
  ClassicSecurity(Outlet* outlet, const Settings* settings, Links* links, Memories* memories)
      : outlet_(outlet), settings_(settings), links_(links), memories_(memories) {}

  void AddTo(CommandTable* table);
  void Reset() { pairing_.reset(); }

 private:
  enum class Asked { kLinkKey, kPinCode, kIoCapability, kConfirmation };
  struct Pairing {
    uint16_t handle;
    Bytes peer;
    Asked asked;  // what the host owes
  };
  using Then = std::function<void(const Bytes& parameters)>;

  void AddKeys(CommandTable* table);
  void AddSimplePairing(CommandTable* table);
  void AddNeverAsked(CommandTable* table);
  // A reply that begins with the peer's address, and what follows if it is the one that is owed.
  void AddReply(CommandTable* table, uint16_t opcode, MaskBit listed, Form form, Asked asked, Then then);

  void Authenticate(const Link& link);
  void Ask(Asked asked, uint8_t event, const Bytes& more = {});
  void CheckLinkKey(const Bytes& key);
  void CheckPinCode(const Bytes& parameters);
  void AskToConfirm();
  void Confirmed();
  void Refused();
  void GiveLinkKey(uint8_t type);
  void Finish(uint8_t status);
  void SetEncryption(Link& link, bool on);

  Outlet* const outlet_;
  const Settings* const settings_;
  Links* const links_;
  Memories* const memories_;
  std::optional<Pairing> pairing_;
};

}  // namespace bthal::sim
