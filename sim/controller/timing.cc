#include "sim/controller/timing.h"

namespace bthal::sim {

bool ScanTimesFit(const uint8_t* at, unsigned longest) {
  constexpr unsigned kShortest = 4;
  const unsigned interval = GetLe16(at);
  const unsigned window = GetLe16(at + 2);
  return window >= kShortest && window <= interval && interval <= longest;
}

bool ConnectionTimesFit(const uint8_t* at) {
  const unsigned least = GetLe16(at);  // in 1.25 ms
  const unsigned greatest = GetLe16(at + 2);
  const unsigned latency = GetLe16(at + 4);  // in events
  const unsigned timeout = GetLe16(at + 6);  // in 10 ms
  return least >= 0x0006 && least <= greatest && greatest <= 0x0C80 && latency <= 0x01F3 && timeout >= 0x000A &&
         timeout <= 0x0C80 && timeout * 4 > (1 + latency) * greatest && GetLe16(at + 8) <= GetLe16(at + 10);
}

bool PhyWishFits(const uint8_t* at) {
  constexpr uint8_t kNoWishToSend = 0x01;
  constexpr uint8_t kNoWishToReceive = 0x02;
  constexpr uint8_t kKnown = 0x07;
  return at[0] <= (kNoWishToSend | kNoWishToReceive) && at[1] <= kKnown && at[2] <= kKnown &&
         ((at[0] & kNoWishToSend) != 0 || at[1] != 0) && ((at[0] & kNoWishToReceive) != 0 || at[2] != 0);
}

}  // namespace bthal::sim
