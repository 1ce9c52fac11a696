#include "sim/neighbours/peer.h"

#include "sim/neighbours/classic_device.h"
#include "sim/neighbours/peripheral.h"
#include "sim/neighbours/phone.h"

namespace bthal::sim {

std::unique_ptr<Peer> MakePeer(const Neighbour& neighbour, PeersLink link) {
  if (!neighbour.low_energy) return std::make_unique<ClassicDevice>(std::move(link));
  if (&neighbour == &Phone()) return std::make_unique<PhoneEnd>(std::move(link));
  return std::make_unique<Peripheral>(neighbour, std::move(link));
}

}  // namespace bthal::sim
