// Terminals at any bit rate, not only those that the C library has a name for.
#pragma once

#include <cstdint>

namespace bthal::sim {

bool MakeRaw(int fd);
bool SetTerminalSpeed(int fd, uint32_t bits_per_second);

}  // namespace bthal::sim
