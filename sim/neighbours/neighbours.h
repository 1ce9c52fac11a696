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
  bool tells_services = false;  // low energy: to whoever scans actively
};

// Those that a host finds.
const std::vector<Neighbour>& Neighbours();
// The one that finds the host: it connects to whoever advertises.
const Neighbour& Phone();
// Null if nobody has this address.
const Neighbour* FindNeighbour(const Bytes& address);
// What a low-energy neighbour advertises: flags and its name.
Bytes AdvertisingData(const Neighbour& neighbour);
// What it adds where it is asked for more, by an active scan; most add nothing.
Bytes ScanResponseData(const Neighbour& neighbour);
// What another one adds to its answer to an inquiry, padded to the size that it has there: its name.
Bytes ExtendedInquiryData(const Neighbour& neighbour);

}  // namespace bthal::sim
