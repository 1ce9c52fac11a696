// The attributes of a low-energy neighbour: its name and appearance, a battery, and a note that a paired host may
// write.
#pragma once

#include <functional>
#include <vector>

#include "sim/neighbours/peer.h"

namespace bthal::sim {

// Answers what a host asks about them.
class Attributes {
 public:
  // `link` outlives it.
  Attributes(const Neighbour& neighbour, const PeersLink* link);

  // Empty if the request wants no answer.
  Bytes Answer(const Bytes& request);
  // A little less is left in the battery: the notification that tells of it, or nothing if the host did not ask for
  // any.
  Bytes Drain();
  bool notifies() const;

 private:
  enum Access : uint8_t { kRead = 1, kWrite = 2, kEncrypted = 4 };
  struct Attribute {
    Bytes type;  // 2 or 16 bytes
    Bytes value;
    uint8_t access = kRead;
  };

  // A service begins, whose UUID this is.
  void AddService(const Bytes& uuid);
  // A characteristic, and the index of its value.
  size_t AddCharacteristic(uint8_t properties, const Bytes& uuid, Bytes value, uint8_t access);

  Bytes FindInformation(const Bytes& request) const;
  Bytes FindByTypeValue(const Bytes& request) const;
  Bytes ReadByType(const Bytes& request) const;
  Bytes Read(const Bytes& request, size_t offset) const;
  Bytes ReadByGroupType(const Bytes& request) const;
  Bytes Write(const Bytes& request);
  // The last handle of the service that begins at this index.
  size_t ServiceEnd(size_t index) const;

  const PeersLink* const link_;
  std::vector<Attribute> attributes_;  // handle 1 comes first
  size_t battery_ = 0;
  size_t battery_wanted_ = 0;
};

}  // namespace bthal::sim
