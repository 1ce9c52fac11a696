// System properties beyond getting and setting one, which <android-base/properties.h> declares.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace bthal::host {

// Every property that is set, with its value, by name. Any thread.
std::vector<std::pair<std::string, std::string>> ListProperties();

// Forgets every property that does not outlive a reboot, the read-only ones among them. False when some file could not
// be removed. To be called when the device starts, before anything reads them.
bool WipeVolatileProperties();

}  // namespace bthal::host
