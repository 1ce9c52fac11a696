// How the components above debug central take part in what it does. They hand themselves in; it knows none of them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

// The parts of the diagnostic report to which others contribute, in their order there.
enum class DumpSection {
  kFirmware,    // at its head
  kKernelLogs,  // behind the record table
  kStatistics,  // behind the saved dumps, at its end
};

// Appends its part to the report at `fd`, which stays the caller's. Any thread; several reports may be written at once.
using DumpSource = std::function<void(int fd)>;

// A log that is copied beside the crash dump, so that the next start does not write over it. Device paths; the copy's
// gets the time of the dump appended.
struct BackedUpLog {
  std::string path;
  std::string copy;
};

// One owner each; an empty function is as if nobody cared.
struct DebugHooks {
  // Appends the transport's own debug dump to the crash dump at `fd`.
  DumpSource transport_dump;
  std::vector<BackedUpLog> logs;

  // Whether the first reset of a bring-up runs just now. Any thread.
  std::function<bool()> is_first_reset;

  // Quality reports, and those of the energy monitor, as they come; receive thread, under the flow-control lock.
  std::function<void(const hci::HciPacket&)> quality_report;
  std::function<void(const hci::HciPacket&)> energy_report;
};

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
