// What a classic neighbour tells of its services when it is asked: one that echoes, and who made it.
#pragma once

#include "sim/base/bytes.h"

namespace bthal::sim {

// The L2CAP service that sends everything back.
inline constexpr uint16_t kEchoService = 0x1001;

// The answer to one request; numbers are in network order.
Bytes ServiceRecordsAnswer(const Bytes& request);

}  // namespace bthal::sim
