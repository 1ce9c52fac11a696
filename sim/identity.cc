#include "sim/identity.h"

#include <algorithm>
#include <cstdio>

namespace bthal::sim {

Bytes ParseAddress(const std::string& text) {
  unsigned part[6];
  char rest = 0;
  if (sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &part[0], &part[1], &part[2], &part[3], &part[4], &part[5],
             &rest) != 6) {
    return {};
  }
  Bytes address;
  for (const unsigned byte : part) Put8(address, byte);
  std::reverse(address.begin(), address.end());
  return address;
}

Identity::Identity(const BoardOptions& options)
    : chip_id(options.chip_id), patched_name(options.local_name), own_address(ParseAddress(options.address)) {
  Forget();
}

void Identity::Forget() {
  name = "QNL" + std::to_string(chip_id) + " ROM";
  build = 0;
  address = own_address;
}

}  // namespace bthal::sim
