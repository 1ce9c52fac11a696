#define LOG_TAG "bthal.qnlproto"

#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>

#include "btqnl_protocol/btqnl_protocol.h"
#include "btqnl_protocol/commands.h"
#include "btqnl_protocol/patch_reader.h"
#include "conf/conf.h"
#include "conf/userial_type.h"
#include "debug_central/debug_central.h"
#include "os/device_path.h"
#include "os/file_utils.h"
#include "shim/shim.h"

namespace android::hardware::bluetooth {
namespace {

using ::android::base::GetProperty;
using ::android::base::SetProperty;
using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr char kFirmwareDirectory[] = "/vendor/firmware/qnlr/";
constexpr char kGenericFirmware[] = "QNL.hcd";

constexpr char kSelectionProperty[] = "persist.bluetooth.firmware.selection";
constexpr char kDownloadProperty[] = "persist.bluetooth.firmware.download";
constexpr char kOtpProperty[] = "persist.bluetooth.otp.status";
constexpr char kOtpWritten[] = "Written";
constexpr char kOtpEmpty[] = "Empty";

// The chip whose patch depends on its OTP, the ones with a patch of their own, and the first ones that take fast
// download.
constexpr uint8_t kOtpDependentChip = 188;
constexpr std::array<uint8_t, 4> kChipsWithOwnPatch = {174, 181, 185, 200};
constexpr uint8_t kFastDownloadWithoutCommandChip = 170;
constexpr uint8_t kFirstFastDownloadChip = 174;

constexpr std::chrono::milliseconds kMinidriverStart(50);
constexpr std::chrono::milliseconds kFirmwareBoot(250);

// Opens a patch file for reading. The bare directory, which is what is left without any candidate, is not one; nor is
// what keeps its reader waiting, or is too large to be a patch.
unique_fd OpenPatchFile(const std::string& path) {
  unique_fd fd = os::OpenRegularFile(path, O_RDONLY);
  struct stat status {};
  if (fd.ok() && fstat(fd.get(), &status) == 0 && status.st_size > kMaxPatchSize) {
    LOG(ERROR) << "firmware_download: " << path << " has " << status.st_size << " bytes, more than the "
               << kMaxPatchSize << " that a patch may have";
    fd.reset();
  }
  return fd;
}

}  // namespace

bool BtQnlProtocol::firmware_download() {
  const DebugAnchor anchor(AnchorType::kFirmwareDownload, "firmware_download");
  if (!hci::shim::IsUserialReady()) {
    LOG(ERROR) << "firmware_download: Userial is not ready";
    return false;
  }

  const std::string path = find_firmware_file();
  LOG(INFO) << "firmware_download: Looking for patchfile [" << path << "]";
  unique_fd fd = OpenPatchFile(path);
  if (!fd.ok()) {
    LOG(ERROR) << "firmware_download: Unable to open patchfile [" << path << "]";
    DebugCentral::Get().UpdateRecord(
        AnchorType::kFirmwareDownloadFailed,
        StringPrintf("%s: Unable to open patchfile [%s]", "firmware_download", path.c_str()));
    return false;
  }
  const off_t size = lseek(fd.get(), 0, SEEK_END);
  lseek(fd.get(), 0, SEEK_SET);
  LOG(INFO) << "firmware_download: Patchram file size " << size;

  const bool fast = decide_fast_download();
  if (!start_minidriver()) return false;

  const bool passthrough = hci::shim::GetUserialType() == conf::kUserialAoc;
  LOG(INFO) << "firmware_download: AOC passthrough is " << (passthrough ? "" : "not ") << "supported";
  const bool downloaded = passthrough ? download_passthrough(fd.get()) : download_direct(fd.get(), fast);
  fd.reset();
  if (!downloaded) return false;

  // The launched firmware talks at its default speed again.
  baudrate_change(UartBaudRate::kUartBaudRate115200, true);
  std::this_thread::sleep_for(kFirmwareBoot);
  LOG(INFO) << "firmware_download: Done";
  DebugCentral::Get().UpdateRecord(AnchorType::kFirmwareDownloadDone, StringPrintf("%s: Done", "firmware_download"));
  return true;
}

std::vector<std::string> BtQnlProtocol::firmware_candidates() {
  std::vector<std::string> names;
  const std::string selection = GetProperty(kSelectionProperty, kGenericFirmware);
  if (selection == "BTFW_D.hcd" || selection == "BTFW_B.hcd") names.push_back(selection);
  const uint8_t chip = chip_id_;
  if (chip == kOtpDependentChip) {
    names.push_back(StringPrintf(check_firmware_file_by_otp_status() ? "QNL_%d_U.hcd" : "QNL_%d_S.hcd", chip));
  }
  if (std::find(kChipsWithOwnPatch.begin(), kChipsWithOwnPatch.end(), chip) != kChipsWithOwnPatch.end()) {
    names.push_back(StringPrintf("QNL_%d.hcd", chip));
  }
  names.emplace_back(kGenericFirmware);
  return names;
}

// Returns the bare directory when there is no candidate.
std::string BtQnlProtocol::find_firmware_file() {
  for (const std::string& name : firmware_candidates()) {
    std::string path = kFirmwareDirectory + name;
    LOG(INFO) << "Check Firmware file:" << path;
    if (access(os::DevicePath(path).c_str(), F_OK) != 0) continue;
    LOG(INFO) << "Firmware file:" << path << " be used";
    SetProperty(kDownloadProperty, name);
    DebugCentral::Get().UpdateRecord(AnchorType::kFirmwareFile,
                                     StringPrintf("%s: firmware file [%s] be used", "firmware_download", path.c_str()));
    return path;
  }
  return kFirmwareDirectory;
}

bool BtQnlProtocol::decide_fast_download() {
  bool fast = false;
  if (conf::Config::GetInstance().GetFastDownloadState()) {
    fast =
        chip_id_ == kFastDownloadWithoutCommandChip || (chip_id_ >= kFirstFastDownloadChip && enable_fast_download());
  }
  LOG(INFO) << "firmware_download: Fast download is " << (fast ? "" : "not ") << "supported";
  DebugCentral::Get().UpdateRecord(
      AnchorType::kFastDownload,
      StringPrintf("%s: fast download %s supported", "firmware_download", fast ? "is" : "is not"));
  return fast;
}

bool BtQnlProtocol::enable_fast_download() {
  LOG(INFO) << "enable_fast_download: Sending Set Download Config command";
  const uint8_t status = send_and_wait(kOpcodeSetDownloadConfig, {0x00, 0x01});
  LOG(INFO) << "enable_fast_download: Set Download Config command returned: " << int{status};
  DebugCentral::Get().UpdateRecord(
      AnchorType::kFastDownload,
      StringPrintf("%s: Set Download Config command returned: 0x%2X", "enable_fast_download", status));
  return status == 0;
}

bool BtQnlProtocol::start_minidriver() {
  LOG(INFO) << "firmware_download: Sending Download Minidrv command";
  const uint8_t status = send_and_wait(kOpcodeDownloadMinidriver);
  if (status != 0) {
    LOG(ERROR) << "firmware_download: Download Minidrv command failed: " << int{status};
    // The "U" before "Download" stays: the record's texts do not change from release to release.
    DebugCentral::Get().UpdateRecord(
        AnchorType::kFirmwareDownloadFailed,
        StringPrintf("%s: UDownload Minidrv command failed: 0x%2X", "firmware_download", status));
    return false;
  }
  std::this_thread::sleep_for(kMinidriverStart);
  return true;
}

bool BtQnlProtocol::check_firmware_file_by_otp_status() {
  // A written OTP never becomes empty again.
  if (GetProperty(kOtpProperty, "") == kOtpWritten) return false;
  return !isOtpWritten();
}

bool BtQnlProtocol::isOtpWritten() {
  LOG(INFO) << "isOtpWritten Send check OTP command";
  const uint8_t status = send_and_wait(kOpcodeCheckOtp, {0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
  if (status != 0) LOG(ERROR) << "isOtpWritten: Check OTP status command error: " << int{status};

  // Command Complete: 0x0E | length | credits | opcode (2) | status. Zeros stand for what did not come.
  constexpr uint8_t kCommandDisallowed = 0x0C;
  std::array<uint8_t, 6> head{};
  const hci::HciPacket event = btqnl_last_command_complete(kOpcodeCheckOtp);
  std::copy_n(event.data(), std::min(event.size(), head.size()), head.begin());
  LOG(INFO) << StringPrintf("isOtpWritten: Check OTP status response event :0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x",
                            head[0], head[1], head[2], head[3], head[4], head[5]);

  // The controller refuses to look at an OTP that has been written.
  const bool written = head[0] == hci::kCommandCompleteEvent && head[2] == 1 && head[3] == (kOpcodeCheckOtp & 0xFF) &&
                       head[4] == kOpcodeCheckOtp >> 8 && head[5] == kCommandDisallowed;
  SetProperty(kOtpProperty, written ? kOtpWritten : kOtpEmpty);
  LOG(INFO) << (written ? "isOtpWritten: OTP is not empty!" : "isOtpWritten: OTP is empty!");
  return written;
}

}  // namespace android::hardware::bluetooth
