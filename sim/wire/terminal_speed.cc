#include "sim/wire/terminal_speed.h"

#include <asm/termbits.h>
#include <sys/ioctl.h>

namespace bthal::sim {

// Asked of the kernel itself: the C library's call knows only the rates that have a name, and 6 Mbit/s has none.
std::optional<uint32_t> TerminalSpeed(int fd) {
  struct termios2 attributes {};
  if (ioctl(fd, TCGETS2, &attributes) != 0) return std::nullopt;
  return attributes.c_ospeed;
}

}  // namespace bthal::sim
