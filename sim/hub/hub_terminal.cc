#include "sim/hub/hub_terminal.h"

#include <asm/termbits.h>
#include <sys/ioctl.h>

namespace bthal::sim {

bool MakeRaw(int fd) {
  struct termios2 attributes {};
  if (ioctl(fd, TCGETS2, &attributes) != 0) return false;
  attributes.c_iflag = 0;
  attributes.c_oflag = 0;
  attributes.c_lflag = 0;
  attributes.c_cflag = (attributes.c_cflag & ~static_cast<tcflag_t>(CSIZE | PARENB)) | CS8 | CRTSCTS;
  attributes.c_cc[VMIN] = 1;
  attributes.c_cc[VTIME] = 0;
  return ioctl(fd, TCSETS2, &attributes) == 0;
}

bool SetTerminalSpeed(int fd, uint32_t bits_per_second) {
  struct termios2 attributes {};
  if (ioctl(fd, TCGETS2, &attributes) != 0) return false;
  attributes.c_cflag =
      (attributes.c_cflag & ~static_cast<tcflag_t>(CBAUD | CBAUD << IBSHIFT)) | BOTHER | BOTHER << IBSHIFT;
  attributes.c_ispeed = bits_per_second;
  attributes.c_ospeed = bits_per_second;
  return ioctl(fd, TCSETS2, &attributes) == 0 && ioctl(fd, TCFLSH, TCIFLUSH) == 0;
}

}  // namespace bthal::sim
