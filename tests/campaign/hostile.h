// Hostile peers beside a client at work.
#pragma once

#include <chrono>
#include <cstdint>

#include "campaign/device.h"

namespace bthal::campaign {

// For so long hostile peers, each a process, are at the service's sockets while one client goes on sending commands.
// Prints how often they met the service, and what became of the client's answers and of the service's memory and
// descriptors. Whether every answer came in time, both were flat after the first part, and nothing is left of the
// peers.
bool WithstandHostilePeers(Device& device, std::chrono::seconds duration, uint64_t seed);

}  // namespace bthal::campaign
