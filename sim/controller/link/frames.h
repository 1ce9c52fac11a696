// L2CAP frames, and the ACL packets that carry them.
//   length, 16 bits | channel, 16 bits | payload
#pragma once

#include <optional>

#include "sim/base/bytes.h"

namespace bthal::sim {

struct Frame {
  uint16_t channel;
  Bytes payload;
};

// Puts a frame together from the packets that carry it.
class FrameAssembler {
 public:
  // A whole ACL packet; gives the frame that it completes. What belongs to no frame is forgotten.
  std::optional<Frame> Feed(const Bytes& acl);

 private:
  Bytes frame_;
};

// One ACL packet with a whole frame, for the host.
Bytes AclWithFrame(uint16_t handle, uint16_t channel, const Bytes& payload);

}  // namespace bthal::sim
