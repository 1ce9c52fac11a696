// The rfkill entry by which the service powers its controller.
#pragma once

#include <string>
#include <vector>

namespace bthal::tool {

struct RfkillEntry {
  std::string path;  // "/sys/class/rfkill/rfkill1"
  std::string name;  // what its driver calls it: a kernel's adapter "hci0"; may be empty
};

// The entries of type bluetooth that the service can find, by their numbers: it takes the first. Its search ends at the
// first number that is missing.
std::vector<RfkillEntry> ReachedBluetoothEntries();

// Those behind that number, which it never gets to.
std::vector<RfkillEntry> UnreachedBluetoothEntries();

// "/sys/class/rfkill/rfkill1", or nothing.
std::string FindPowerSwitch();

}  // namespace bthal::tool
