// How a low-energy neighbour behaves over a connection.
#pragma once

#include "sim/base/bytes.h"

namespace bthal::sim {

// A peer's answer to an ACL payload that holds one whole L2CAP frame: it refuses politely whatever it is asked, so that
// a host's stack comes to rest. Empty if the frame wants no answer.
Bytes PeerAnswer(const Bytes& l2cap);

}  // namespace bthal::sim
