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
// What another one adds to its answer to an inquiry, padded to the size that it has there: its name.
Bytes ExtendedInquiryData(const Neighbour& neighbour);

}  // namespace bthal::sim
