// Why a service died, and what it left behind.
#pragma once

#include <time.h>

#include <string>
#include <vector>

namespace bthal::tool {

// What its last words mean, and what to do about it: "the firmware patch was refused: ...". Empty where they say
// nothing that is known here.
std::string CauseOfDeath(const std::vector<std::string>& last_words);

// The crash files below the device root that were written at `begin` or after it, as paths on this machine;
// of those that hold nothing it is said.
std::vector<std::string> CrashFilesSince(const timespec& begin);

}  // namespace bthal::tool
