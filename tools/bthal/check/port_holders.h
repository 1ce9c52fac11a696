// Who has a device open.
#pragma once

#include <sys/stat.h>
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

// `device`: what stat says of its node.
PortHolders HoldersOf(const struct stat& device);

}  // namespace bthal::tool
