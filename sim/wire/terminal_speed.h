// At which speed a terminal is set.
#pragma once

#include <cstdint>
#include <optional>

namespace bthal::sim {

// In bit/s, 0 for one that no UART has; none if the terminal does not tell.
std::optional<uint32_t> TerminalSpeed(int fd);

}  // namespace bthal::sim
