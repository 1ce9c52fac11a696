// What only one process at a time may be on a device: init sees to it on Android.
#pragma once

#include <sys/types.h>
#include <sysexits.h>

#include <string_view>

namespace bthal::host {

inline constexpr std::string_view kServiceRole = "service";
inline constexpr std::string_view kSupervisorRole = "supervisor";

// The exit status of a program that ends because another has its role: to start it again would not help.
inline constexpr int kRoleTakenStatus = EX_UNAVAILABLE;

// Makes this process the one that has the role below the device root, until it ends, however it ends: the kernel keeps
// the claim. 0 on success, and where no claim can be made at all, the folder not being ours; else the process that has
// it (-1: one that has no number here, being in another container). A holder that is just ending is waited for. Once a
// role and process.
pid_t ClaimRole(std::string_view role);

// Which other process has the role; 0: none; -1 as above. Not for a role that this process has: looking would lose it.
pid_t HolderOfRole(std::string_view role);

}  // namespace bthal::host
