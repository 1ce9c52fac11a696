#include "sim/neighbours/neighbours.h"

#include <algorithm>

namespace bthal::sim {
namespace {

void PutName(Bytes& data, const std::string& name) {
  constexpr uint8_t kCompleteName = 0x09;
  Put8(data, static_cast<unsigned>(1 + name.size()));
  Put8(data, kCompleteName);
  data.insert(data.end(), name.begin(), name.end());
}

}  // namespace

const std::vector<Neighbour>& Neighbours() {
  static const auto& neighbours = *new std::vector<Neighbour>{
      {{0x01, 0x00, 0x00, 0x5A, 0x22, 0xC2}, true, 1, 0, "Thermometer", -48},
      {{0x02, 0x00, 0x00, 0x5A, 0x22, 0xC2}, true, 1, 0, "Heart monitor", -61},
      {{0x03, 0x00, 0x00, 0x5A, 0x22, 0x00}, true, 0, 0, "Door lock", -77, true},
      {{0x04, 0x00, 0x00, 0x5A, 0x22, 0x00}, false, 0, 0x240404, "Headset", -55},
  };
  return neighbours;
}

const Neighbour& Phone() {
  static const auto& phone = *new Neighbour{{0x05, 0x00, 0x00, 0x5A, 0x22, 0xC2}, true, 1, 0, "Phone", -52};
  return phone;
}

const Neighbour* FindNeighbour(const Bytes& address) {
  const auto& all = Neighbours();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const Neighbour& neighbour) { return neighbour.address == address; });
  return found == all.end() ? nullptr : &*found;
}

Bytes AdvertisingData(const Neighbour& neighbour) {
  constexpr uint8_t kFlags = 0x01;
  constexpr uint8_t kGeneralDiscoverableLeOnly = 0x06;
  Bytes data{2, kFlags, kGeneralDiscoverableLeOnly};
  PutName(data, neighbour.name);
  return data;
}

Bytes ScanResponseData(const Neighbour& neighbour) {
  constexpr uint8_t kServices = 0x03;
  constexpr uint16_t kBattery = 0x180F;
  if (!neighbour.tells_services) return {};
  Bytes data{3, kServices};
  Put16(data, kBattery);
  return data;
}

Bytes ExtendedInquiryData(const Neighbour& neighbour) {
  constexpr size_t kSize = 240;
  Bytes data;
  PutName(data, neighbour.name);
  data.resize(kSize);
  return data;
}

}  // namespace bthal::sim
