// The service's own record of every HCI packet, in btsnoop format, independent of the stack's.
#pragma once

#include <atomic>
#include <cstdint>
#include <fstream>
#include <mutex>
#include <string>

#include "h4/hci_packet.h"

namespace android::hardware::bluetooth {

inline constexpr char kBtsnoopLogPath[] = "/data/vendor/bluetooth/btsnoop_hci_vnd.log";
inline constexpr char kBtsnoopSizeProperty[] = "persist.bluetooth.vendor.btsnoopsize";
inline constexpr char kBtsnoopLastSuffix[] = ".last";

// A process-wide singleton, never destroyed. Errors are logged and never reach the caller. Any thread.
class VndSnoopLogger {
 public:
  enum Direction : uint8_t { kFromController = 0, kToController = 1 };
  // The H4 codes; the numbers of hci::HciPacketType.
  enum PacketType : uint8_t { kCommand = 1, kAclData = 2, kScoData = 3, kEvent = 4, kIsoData = 5 };

  static VndSnoopLogger& Get();

  // Reads the properties and opens a fresh log, or deletes the old ones when the log is switched off.
  void Start();
  // Closes the log and keeps it on disk.
  void Stop();

  // Appends one record. `filtered` writes only the first 16 bytes of the packet. Does nothing while not logging.
  void Capture(const hci::HciPacket& packet, Direction direction, PacketType type, bool filtered);

  // True while a log is open for capture; then traffic that the controller marks as its own is kept from the stack.
  bool is_logging() const { return is_logging_; }

 private:
  VndSnoopLogger() = default;

  void OpenNextSnoopLogFile();
  void CloseCurrentSnoopLogFile();

  std::atomic<bool> is_logging_{false};
  std::string log_path_;
  uint64_t max_packets_ = 0;
  uint64_t packets_in_file_ = 0;
  std::recursive_mutex mutex_;
};

// Removes the log at `path` (as the device knows it) and its ".last" backup.
void delete_btsnoop_files(const std::string& path);

}  // namespace android::hardware::bluetooth
