// A classic neighbour at the other end of a connection: it opens channels to the services that it has.
#pragma once

#include <map>

#include "sim/neighbours/peer.h"

namespace bthal::sim {

class ClassicDevice : public Peer {
 public:
  explicit ClassicDevice(PeersLink link) : link_(std::move(link)) {}

  void Receive(uint16_t channel, const Bytes& payload) override;

 private:
  struct Channel {
    uint16_t hosts;  // what the host calls it
    uint16_t service;
  };

  uint16_t FreeChannel() const;
  void Signal(const Bytes& command);
  void Answer(uint8_t code, uint8_t identifier, const Bytes& data);
  void Connect(uint8_t identifier, uint16_t service, uint16_t hosts);
  void Configure(uint8_t identifier, const Bytes& data);
  void Disconnect(uint8_t identifier, const Bytes& data);
  void Inform(uint8_t identifier, uint16_t type);

  const PeersLink link_;
  std::map<uint16_t, Channel> channels_;  // by what this end calls them
  uint8_t next_identifier_ = 1;
};

}  // namespace bthal::sim
