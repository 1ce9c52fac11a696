// What intervals, lengths and physical layers a host may ask for.
#pragma once

#include "sim/base/bytes.h"
#include "sim/controller/command_table.h"

namespace bthal::sim {

// The longest data packet that a low-energy link may carry, and how long it takes in microseconds.
constexpr Range DataOctets(size_t at) { return Word(at, 0x001B, 0x00FB); }
constexpr Range DataTime(size_t at) { return Word(at, 0x0148, 0x4290); }

//   interval | window, 16 bits each: a window is no longer than its interval, which is at most `longest`
bool ScanTimesFit(const uint8_t* at, unsigned longest);
//   least and greatest interval | latency | supervision timeout | least and greatest event length, 16 bits each: a link
//   must not be given up before the peer, whose latency lets it skip events, has had two chances to answer
bool ConnectionTimesFit(const uint8_t* at);
//   which directions are left to the controller | those wanted to send with | to receive with: a wish names at least
//   one
bool PhyWishFits(const uint8_t* at);

}  // namespace bthal::sim
