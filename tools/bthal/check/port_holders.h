// Who has a device open.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace bthal::tool {

struct Holder {
  pid_t process = 0;
  std::string name;  // as ps shows it
};

struct PortHolders {
  std::vector<Holder> known;  // processes but this one
  bool all_seen = true;       // otherwise there are processes whose files this user may not look at
};

PortHolders HoldersOf(dev_t device);

}  // namespace bthal::tool
