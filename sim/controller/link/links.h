// The connections that are there, and what holds of each.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "sim/controller/command_table.h"
#include "sim/controller/link/frames.h"
#include "sim/neighbours/peer.h"

namespace bthal::sim {

enum class LinkKind { kClassic, kLowEnergy, kSynchronous };
enum class Role : uint8_t { kCentral, kPeripheral };

struct Link {
  uint16_t handle;
  LinkKind kind;
  Bytes peer;  // its address
  Role role = Role::kCentral;
  uint8_t mode = 0;  // 2: sniff
  uint16_t policy = 0;
  uint16_t supervision_timeout = 0x7D00;
  bool authenticated = false;
  bool encrypted = false;
  Bytes asked_for_key{};              // the name of the key that the host owes; empty: it owes none
  bool asked_for_times = false;       // the host owes a word on the times that the peer wants
  FrameAssembler frames{};            // from the host
  std::shared_ptr<Peer> peers_end{};  // null for voice
};

class Links {
 public:
  using Then = std::function<void(Link& link, const Bytes& parameters)>;

  Link& Add(LinkKind kind, const Bytes& peer);
  void Remove(uint16_t handle) { links_.erase(handle); }
  // Handles count from the first one again.
  void Reset();

  // Null if there is no such link.
  Link* Find(uint16_t handle);
  Link* FindPeer(LinkKind kind, const Bytes& peer);
  std::map<uint16_t, Link>& all() { return links_; }
  // Counts resets: what was begun under an earlier one is over.
  uint64_t generation() const { return generation_; }

  // For commands that begin with a handle. Answers by status and then lets `then` happen, if there is such a link.
  Answer ForLink(const Bytes& parameters, Then then);
  // Answers with status, handle and `more`, or as many zeros if there is no such link.
  Answer OfLink(const Bytes& parameters, const Bytes& more);

 private:
  static constexpr uint16_t kFirstHandle = 0x0040;

  static uint16_t After(uint16_t handle);

  std::map<uint16_t, Link> links_;
  uint16_t next_handle_ = kFirstHandle;
  uint64_t generation_ = 0;
};

}  // namespace bthal::sim
