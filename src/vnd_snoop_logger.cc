#define LOG_TAG "bthal.vndsnoop"

#include "vnd_snoop_logger.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/stringprintf.h>

#include "conf/conf.h"
#include "conf/properties.h"
#include "os/device_path.h"
#include "os/error_text.h"

namespace android::hardware::bluetooth {
namespace {

using ::android::base::StringPrintf;

constexpr char kLogModeDisabled[] = "disabled";
constexpr char kLogModeFiltered[] = "filtered";
constexpr char kEnabledProperty[] = "persist.bluetooth.vendor.btsnoop";
constexpr uint64_t kDefaultMaxPackets = 65535;
constexpr std::streamsize kFilteredPacketSize = 16;

constexpr char kDeviceUser[] = "bluetooth";
constexpr size_t kUserBufferSize = 16384;
constexpr mode_t kFolderMode = 0750;

// File header, multi-byte fields big-endian as everywhere in the format:
//   "btsnoop\0" (8) | version 1 (4) | datalink type 1002, HCI UART (4)
constexpr std::array<char, 16> kFileHeader = {'b', 't', 's', 'n', 'o', 'o', 'p',  0,
                                              0,   0,   0,   1,   0,   0,   0x03, static_cast<char>(0xEA)};

// Record:
//   original length (4) | included length (4) | flags (4) | cumulative drops (4) | time (8) | H4 type (1) | packet (n)
// Both lengths count the type byte. The time is in microseconds since the first day of the year 0.
constexpr size_t kIncludedLengthOffset = 4;
constexpr size_t kFlagsOffset = 8;
constexpr size_t kTimeOffset = 16;
constexpr size_t kTypeOffset = 24;
constexpr size_t kRecordHeaderSize = 25;
constexpr uint64_t kUnixEpochInSnoopTime = 0x00DCDDB30F2F8000;

constexpr uint32_t kFlagFromController = 1;
constexpr uint32_t kFlagCommandOrEvent = 2;

uint32_t Flags(VndSnoopLogger::Direction direction, VndSnoopLogger::PacketType type) {
  switch (type) {
    case VndSnoopLogger::kCommand:
      return kFlagCommandOrEvent;
    case VndSnoopLogger::kEvent:
      return kFlagCommandOrEvent | kFlagFromController;
    case VndSnoopLogger::kAclData:
    case VndSnoopLogger::kScoData:
    case VndSnoopLogger::kIsoData:
      return direction == VndSnoopLogger::kFromController ? kFlagFromController : 0;
  }
  return 0;
}

template <typename T>
void PutBigEndian(uint8_t* at, T value) {
  for (size_t i = 0; i < sizeof(T); ++i) at[i] = static_cast<uint8_t>(value >> (8 * (sizeof(T) - 1 - i)));
}

// Whether this machine is a device, or set up as one, and not somebody's desktop: there the service's user exists, and
// whoever is to read the logs is in its group.
bool HasDeviceUser() {
  std::array<char, kUserBufferSize> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  return getpwnam_r(kDeviceUser, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr;
}

// The log holds the link keys, and in clear what is encrypted on the air. Its own mode lets everybody read it; its
// folder does not.
void KeepFolderPrivate() {
  const std::string folder = ::android::base::Dirname(kBtsnoopLogPath);
  struct stat status {};
  if (!HasDeviceUser() || stat(os::DevicePath(folder).c_str(), &status) != 0) return;
  if ((status.st_mode & ALLPERMS) == kFolderMode || chmod(os::DevicePath(folder).c_str(), kFolderMode) == 0) return;
  LOG(WARNING) << "Start: unable to keep " << folder << " from other users: " << os::ErrorText();
}

uint64_t SnoopTimeNow() {
  using std::chrono::duration_cast;
  using std::chrono::microseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(duration_cast<microseconds>(now).count()) + kUnixEpochInSnoopTime;
}

}  // namespace

VndSnoopLogger& VndSnoopLogger::Get() {
  static auto& logger = *new VndSnoopLogger;
  return logger;
}

void VndSnoopLogger::Start() {
  const auto configured = ::android::base::GetUintProperty<uint64_t>(kBtsnoopSizeProperty, 0);
  const uint64_t max_packets = configured == 0 ? kDefaultMaxPackets : configured;
  LOG(INFO) << StringPrintf("Vendor btsnoop max packets: %zu", static_cast<size_t>(max_packets));
  const std::string log_mode = ::android::base::GetProperty(
      conf::kBtSnoopLogModeProperty,
      conf::Config::GetInstance().is_user_debug_or_eng_build ? kLogModeFiltered : kLogModeDisabled);
  const bool enabled = ::android::base::GetBoolProperty(kEnabledProperty, false);
  LOG(INFO) << StringPrintf("Vendor snoop log enabled: %d", enabled);

  const std::lock_guard lock(mutex_);
  log_path_ = kBtsnoopLogPath;
  max_packets_ = max_packets;
  for (os::LogThrottle* line : {&header_failed_, &payload_failed_, &flush_failed_}) line->Reset();
  if (enabled && log_mode != kLogModeDisabled) {
    KeepFolderPrivate();
    OpenNextSnoopLogFile();
    is_logging_ = true;
  } else {
    delete_btsnoop_files(log_path_);
    is_logging_ = false;
  }
}

void VndSnoopLogger::Stop() {
  const std::lock_guard lock(mutex_);
  LOG(DEBUG) << StringPrintf("Closing btsnoop log data at %s", log_path_.c_str());
  CloseCurrentSnoopLogFile();
  is_logging_ = false;
}

void VndSnoopLogger::Capture(const hci::HciPacket& packet, Direction direction, PacketType type, bool filtered) {
  if (!is_logging_) return;
  const auto length = static_cast<uint32_t>(packet.size() + 1);
  uint8_t header[kRecordHeaderSize] = {};
  PutBigEndian(header, length);
  PutBigEndian(header + kIncludedLengthOffset, length);
  PutBigEndian(header + kFlagsOffset, Flags(direction, type));
  PutBigEndian(header + kTimeOffset, SnoopTimeNow());
  header[kTypeOffset] = type;

  const std::lock_guard lock(mutex_);
  if (!is_logging_) return;  // stopped in between
  // The record that goes over the limit opens the next file and is not counted there: every file but the first holds
  // one more than the maximum.
  if (++packets_in_file_ > max_packets_) OpenNextSnoopLogFile();
  WriteRecord(header, packet, filtered);
}

// The buffer takes header and packet, and the flush is the one write. A packet too large for it goes out together with
// the buffered header.
void VndSnoopLogger::WriteRecord(const uint8_t* header, const hci::HciPacket& packet, bool filtered) {
  if (!write(reinterpret_cast<const char*>(header), kRecordHeaderSize)) {
    Complain(header_failed_, "Failed to write packet header for btsnoop");
  }
  auto size = static_cast<std::streamsize>(packet.size());
  if (filtered) {
    LOG(INFO) << StringPrintf("%s: filtered ACL packet, filtered:%d", "Capture", filtered);
    size = std::min(size, kFilteredPacketSize);
  }
  if (!write(reinterpret_cast<const char*>(packet.data()), size)) {
    Complain(payload_failed_, "Failed to write packet payload for btsnoop");
  }
  FlushOrComplain();
  if (good()) {
    bytes_in_file_ += kRecordHeaderSize + static_cast<uint64_t>(size);
  } else {
    CutTornRecord();
  }
}

void VndSnoopLogger::OpenNextSnoopLogFile() {
  const std::lock_guard lock(mutex_);
  CloseCurrentSnoopLogFile();
  os::MoveLogToLast(log_path_, __func__, LOG_TAG);

  const mode_t previous_mask = umask(0);
  rdbuf()->pubsetbuf(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
  os::OpenLogStream(log_path_, std::ios::binary, *this);
  stream_error_ = good() ? 0 : errno;
  os::MakeLogReadable(log_path_, __func__, LOG_TAG);
  if (!good()) {
    LOG(ERROR) << StringPrintf("Unable to open snoop log at \"%s\", error: \"%s\"", log_path_.c_str(), ErrorText());
  }
  umask(previous_mask);
  WriteFileHeader();
}

void VndSnoopLogger::WriteFileHeader() {
  bytes_in_file_ = 0;
  if (!write(kFileHeader.data(), kFileHeader.size())) {
    LOG(ERROR) << StringPrintf("Unable to write file header to \"%s\", error: \"%s\"", log_path_.c_str(), ErrorText());
  }
  FlushOrComplain();
  if (good()) {
    bytes_in_file_ = kFileHeader.size();
  } else {
    CutTornRecord();
  }
}

void VndSnoopLogger::CloseCurrentSnoopLogFile() {
  const std::lock_guard lock(mutex_);
  if (is_open()) {
    flush();
    close();
  }
  packets_in_file_ = 0;
}

void VndSnoopLogger::FlushOrComplain() {
  if (!flush()) Complain(flush_failed_, "Failed to flush");
}

// On a full disk, every packet would bring such a line.
void VndSnoopLogger::Complain(os::LogThrottle& throttle, const char* what) {
  const char* const error = ErrorText();
  throttle.Log(LOG_TAG, ::android::base::ERROR, [&] { return StringPrintf("%s, error: \"%s\"", what, error); });
}

// After a failed write the file may end inside a record, and the stream would try the rest again when it is closed. The
// file is given up here, cut to its whole records: what was captured stays readable.
void VndSnoopLogger::CutTornRecord() {
  if (!is_open()) return;
  rdbuf()->close();
  if (truncate(os::DevicePath(log_path_).c_str(), static_cast<off_t>(bytes_in_file_)) != 0 && errno != ENOENT) {
    LOG(ERROR) << "CutTornRecord: \"" << log_path_ << "\" ends inside a record"
               << ": " << os::ErrorText();
  }
}

// A stream tells of its failures for as long as they last; the system only once, in errno.
const char* VndSnoopLogger::ErrorText() {
  if (stream_error_ == 0) stream_error_ = errno;
  return strerror(stream_error_);
}

void delete_btsnoop_files(const std::string& path) {
  LOG(INFO) << "Deleting logs if they exist";
  if (!os::FileExists(path)) {
    LOG(INFO) << StringPrintf("Main log file does not exist at \"%s\"", path.c_str());
  } else if (!os::RemoveFile(path)) {
    LOG(ERROR) << StringPrintf("Failed to remove main log file at \"%s\"", path.c_str());
  }
  // The lines about the older file show the main path, too: texts of the log do not change from release to release.
  const std::string last = path + kBtsnoopLastSuffix;
  if (!os::FileExists(last)) {
    LOG(INFO) << StringPrintf("Last log file does not exist at \"%s\"", path.c_str());
  } else if (!os::RemoveFile(last)) {
    LOG(ERROR) << StringPrintf("Failed to remove last log file at \"%s\"", path.c_str());
  }
}

}  // namespace android::hardware::bluetooth
