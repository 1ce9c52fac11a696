// The devices around the board.
#pragma once

#include <string>
#include <vector>

#include "sim/base/bytes.h"

namespace bthal::sim {

struct Neighbour {
  Bytes address;  // least significant byte first
  bool low_energy;
  uint8_t address_type;      // low energy: 0 public, 1 random
  uint32_t class_of_device;  // otherwise
  std::string name;
  int8_t rssi;
};

const std::vector<Neighbour>& Neighbours();
// What a low-energy neighbour advertises: flags and its name.
Bytes AdvertisingData(const Neighbour& neighbour);

// A low-energy peer's answer to an ACL payload that holds one whole L2CAP frame: it refuses politely whatever it is
// asked, so that a host's stack comes to rest. Empty if the frame wants no answer.
Bytes PeerAnswer(const Bytes& l2cap);

}  // namespace bthal::sim
