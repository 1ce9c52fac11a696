#include "sim/wire/terminal_speed.h"

#include <termios.h>

namespace bthal::sim {
namespace {

struct Speed {
  speed_t code;
  uint32_t bits_per_second;
};

constexpr Speed kSpeeds[] = {
    {B9600, 9600},       {B19200, 19200},     {B38400, 38400},     {B57600, 57600},     {B115200, 115200},
    {B230400, 230400},   {B460800, 460800},   {B500000, 500000},   {B576000, 576000},   {B921600, 921600},
    {B1000000, 1000000}, {B1152000, 1152000}, {B1500000, 1500000}, {B2000000, 2000000}, {B2500000, 2500000},
    {B3000000, 3000000}, {B3500000, 3500000}, {B4000000, 4000000},
};

}  // namespace

std::optional<uint32_t> TerminalSpeed(int fd) {
  termios attributes{};
  if (tcgetattr(fd, &attributes) != 0) return std::nullopt;
  for (const Speed& speed : kSpeeds) {
    if (speed.code == cfgetospeed(&attributes)) return speed.bits_per_second;
  }
  return 0;
}

}  // namespace bthal::sim
