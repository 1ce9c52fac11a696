// The service's own record of every HCI packet, in btsnoop format, independent of the stack's.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <mutex>
#include <string>

#include "hci/hci_packet.h"
#include "os/file_utils.h"
#include "os/log_throttle.h"

namespace android::hardware::bluetooth {

inline constexpr char kBtsnoopLogPath[] = "/data/vendor/bluetooth/btsnoop_hci_vnd.log";
// Where the log is copied to before a crash, ahead of the time.
inline constexpr char kBtsnoopBackupPath[] = "/data/vendor/bluetooth/backup_btsnoop_hci_vnd.log";
inline constexpr char kBtsnoopSizeProperty[] = "persist.bluetooth.vendor.btsnoopsize";
inline constexpr const char* kBtsnoopLastSuffix = os::kLastSuffix;

// A process-wide singleton, never destroyed, and itself the stream that the records go to. Errors are logged, once a
// second while they last, and never reach the caller: after one the stream stays failed until the next rotation. Any
// thread.
class VndSnoopLogger : private std::ofstream {
 public:
  enum Direction : uint8_t { kFromController = 0, kToController = 1 };
  // The H4 codes; the numbers of hci::HciPacketType.
  enum PacketType : uint8_t { kCommand = 1, kAclData = 2, kScoData = 3, kEvent = 4, kIsoData = 5 };

  static VndSnoopLogger& Get();

  // Reads the properties and opens a fresh log, or deletes the old ones when the log is switched off.
  void Start();
  // Closes the log and keeps it on disk.
  void Stop();

  // Appends one record, with one write to the file and no allocation. `filtered` writes only the first 16 bytes of the
  // packet. Does nothing while not logging.
  void Capture(const hci::HciPacket& packet, Direction direction, PacketType type, bool filtered = false);

  // True while a log is open for capture; then traffic that the controller marks as its own is kept from the stack.
  bool is_logging() const { return is_logging_; }

 private:
  // Any record with a packet that the controller can send or take fits whole.
  static constexpr size_t kBufferSize = size_t{68} * 1024;

  VndSnoopLogger() = default;

  void OpenNextSnoopLogFile();
  void CloseCurrentSnoopLogFile();
  void WriteFileHeader();
  void WriteRecord(const uint8_t* header, const hci::HciPacket& packet, bool filtered);
  void FlushOrComplain();
  void Complain(os::LogThrottle& throttle, const char* what);
  void CutTornRecord();
  const char* ErrorText();

  std::atomic<bool> is_logging_{false};
  std::string log_path_;
  uint64_t max_packets_ = 0;
  uint64_t packets_in_file_ = 0;
  // Recursive: a rotation is entered with the lock held, from Capture and from Start.
  std::recursive_mutex mutex_;
  uint64_t bytes_in_file_ = 0;  // of whole records
  int stream_error_ = 0;        // what the stream failed of, for the lines that follow
  os::LogThrottle header_failed_;
  os::LogThrottle payload_failed_;
  os::LogThrottle flush_failed_;
  std::array<char, kBufferSize> buffer_;
};

// Removes the log at `path` (as the device knows it) and its ".last" backup.
void delete_btsnoop_files(const std::string& path);

}  // namespace android::hardware::bluetooth
