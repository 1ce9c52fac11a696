// The published services of this machine, for tools. (The platform's own headers look services up by name only.)
#pragma once

#include <string>
#include <vector>

namespace bthal::host {

struct RegisteredService {
  std::string instance;  // as given to AServiceManager_addService
  int pid = 0;           // of the process that published it
  bool alive = false;    // whether that process still takes connections
};

// Every entry below the device root, by name; entries of dead services among them. Any thread.
std::vector<RegisteredService> ListServices();

}  // namespace bthal::host
