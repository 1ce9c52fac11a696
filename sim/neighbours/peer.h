// A neighbour's end of a connection.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>

#include "sim/base/bytes.h"
#include "sim/neighbours/neighbours.h"

namespace bthal::sim {

struct WireAddress {
  uint8_t type;   // 0 public, 1 random
  Bytes address;  // least significant byte first
};

// What a neighbour keeps of the host when the connection has ended, and while the controller is without power.
struct Memory {
  Bytes key_name;       // low energy: a random number and a diversifier
  Bytes long_term_key;  // empty: not paired
  Bytes link_key;       // the same of classic neighbours
};
using Memories = std::map<Bytes, Memory>;  // by the neighbour's address

// What a connection does for the neighbour's end of it. Nothing happens once the connection has ended.
struct PeersLink {
  WireAddress host;
  WireAddress own;
  Memory* memory;  // outlives the connection
  std::function<void(uint16_t channel, const Bytes& payload)> send;
  std::function<bool()> encrypted;
  std::function<void(std::chrono::milliseconds delay, std::function<void()> action)> later;
  // Least and greatest interval, latency, timeout, 16 bits each.
  std::function<void(const Bytes& times)> ask_for_times;
  // Encrypts, if the host has the same key of this name; only for a neighbour that leads.
  std::function<void(const Bytes& name)> encrypt;
};

class Peer {
 public:
  virtual ~Peer() = default;
  // The host has been told of the connection.
  virtual void Begin() {}
  // The payload of a frame.
  virtual void Receive(uint16_t channel, const Bytes& payload) = 0;
  // The key that it would encrypt with, by the key's name; empty if it has none.
  virtual Bytes KeyFor(const Bytes& /*name*/) const { return {}; }
  virtual void Encrypted() {}
};

std::unique_ptr<Peer> MakePeer(const Neighbour& neighbour, PeersLink link);

}  // namespace bthal::sim
