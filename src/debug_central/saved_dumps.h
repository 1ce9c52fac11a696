// Which dumps lie on the disk, and for how long.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

// One kind of file that a dump leaves: `folder` (a device path with its slash) `prefix` suffix `extension`, the suffix
// being the time of the dump.
struct DumpFiles {
  std::string folder;
  std::string prefix;
  std::string extension;
};

// The suffix for a dump taken at `time`: that text, or where a file of any kind has it already, that text with a
// number. Two dumps of one second, by a service that dies as soon as it is back, have no file in common.
std::string UnusedSuffix(const std::vector<DumpFiles>& kinds, const std::string& time);

// Removes the files of all dumps but the newest `count`; those that hold nothing go before any that do. What does not
// bear the time of a dump is left alone.
void KeepNewestDumps(const std::vector<DumpFiles>& kinds, size_t count);

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
