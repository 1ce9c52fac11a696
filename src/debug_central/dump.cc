#define LOG_TAG "bthal.debug_central"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "bluetooth_Activity.h"
#include "bluetooth_bqr.h"
#include "btqnl_protocol/btqnl_protocol.h"
#include "debug_central/debug_central.h"
#include "debug_central/files.h"
#include "h4/hw_control/hw_control.h"
#include "os/device_path.h"
#include "shim/shim.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr size_t kRuleLength = 45;
constexpr size_t kCopyChunk = size_t{64} * 1024;

// A reader that has gone away ends the report; the service ignores SIGPIPE.
bool Write(int fd, std::string_view text) {
  if (::android::base::WriteFully(fd, text.data(), text.size())) return true;
  if (errno != EPIPE) PLOG(ERROR) << "Dump: Failed to write the report";
  return false;
}

void AppendTitle(std::string& out, std::string_view title) {
  const std::string rule(kRuleLength, '=');
  out.append(rule).append("\n").append(title).append("\n").append(rule).append("\n");
}

// Sorted, so that a report reads in the order of time.
std::vector<std::string> NamesWithPrefix(const std::string& directory, std::string_view prefix) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(os::DevicePath(directory).c_str()), closedir);
  if (!dir) {
    LOG(ERROR) << StringPrintf("%s: Failed to open directory, skip %s", "Dump", directory.c_str());
    return names;
  }
  while (const dirent* entry = readdir(dir.get())) {
    if (std::string_view(entry->d_name).substr(0, prefix.size()) == prefix) names.emplace_back(entry->d_name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool CopyFile(int fd, const std::string& path, const std::string& name) {
  const unique_fd file(open(os::DevicePath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file.ok()) return Write(fd, "File open failed: " + name);
  const auto chunk = std::make_unique<std::array<char, kCopyChunk>>();
  for (;;) {
    const ssize_t n = TEMP_FAILURE_RETRY(read(file.get(), chunk->data(), chunk->size()));
    if (n < 0) PLOG(ERROR) << "Dump: Failed to read " << path;
    if (n <= 0) return true;
    if (!Write(fd, std::string_view(chunk->data(), static_cast<size_t>(n)))) return false;
  }
}

void DumpSavedFiles(int fd, const std::string& directory, std::string_view prefix) {
  const std::string stars(kRuleLength, '*');
  for (const std::string& name : NamesWithPrefix(directory, prefix)) {
    LOG(INFO) << StringPrintf("%s: Dumping %s", "Dump", name.c_str());
    if (!Write(fd, StringPrintf("%s\nBEGIN of LogFile: %s\n", stars.c_str(), name.c_str()))) return;
    if (!CopyFile(fd, directory + name, name)) return;
    if (!Write(fd, StringPrintf("\nEND of LogFile: %s\n%s\n", name.c_str(), stars.c_str()))) return;
  }
}

}  // namespace

void DebugCentral::Dump(int fd) {
  Write(fd, FormatRecords());
  DumpKernelFiles(fd);
  DumpSavedFiles(fd, kCrashInfoDirectory, kCrashInfoPrefix);
  LOG(INFO) << StringPrintf("%s: write bt coredump files to IBluetoothHci_default.txt", __func__);
  DumpSavedFiles(fd, kCoreDumpDirectory, kCoreDumpPrefix);
  Write(fd, BtActivitiesLogger::Get().Report() + BluetoothBqr::Get().Report());
}

std::string DebugCentral::FormatRecords() {
  std::string report;
  AppendTitle(report, "Controller Firmware Information");
  report.append(BtQnlProtocol::GetInstacne().local_name()).append("\n");
  const std::lock_guard lock(mutex_);
  AppendTitle(report, "Anchors' Last Appear");
  records_.PrintLastAppearances(report);
  AppendTitle(report, "Anchors' History");
  records_.PrintHistory(report);
  return report;
}

void DebugCentral::DumpKernelFiles(int fd) {
  if (hci::shim::GetUserialType() == hci::shim::kUserialAoc) return;
  auto& hardware = hwcontrol::BtHwControl::Get();
  hardware.GetFsDebugDump(fd, uart_debug_port());
  hardware.GetFsDebugDump(fd, kLpmDebugPort);
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
