#include "sim/controller/identity.h"

namespace bthal::sim {

Identity::Identity(const BoardOptions& options)
    : chip_id(options.chip_id), patched_name(options.local_name), own_address(ParseAddress(options.address)) {
  Forget();
}

void Identity::Patch() {
  constexpr uint16_t kPatchedBuild = 1234;
  name = patched_name;
  build = kPatchedBuild;
}

void Identity::Fix(const Bytes& fixed) {
  address = own_address = fixed;
  address_is_fixed = true;
}

void Identity::Forget() {
  name = "QNL" + std::to_string(chip_id) + " ROM";
  build = 0;
  address = own_address;
}

}  // namespace bthal::sim
