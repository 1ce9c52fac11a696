#define LOG_TAG "bthal.debug_central"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "debug_central/debug_central.h"
#include "debug_central/files.h"
#include "os/device_path.h"
#include "os/error_text.h"
#include "os/file_utils.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr size_t kRuleLength = 45;
constexpr std::chrono::seconds kReaderPatience{1};

// A reader that has gone away ends the report; the service ignores SIGPIPE.
void LogWriteFault() {
  if (errno != EPIPE)
    LOG(ERROR) << "Dump: Failed to write the report"
               << ": " << os::ErrorText();
}

bool Write(int fd, std::string_view text) {
  if (::android::base::WriteFully(fd, text.data(), text.size())) return true;
  LogWriteFault();
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
  switch (os::CopyContent(file.get(), fd)) {
    case os::CopyResult::kDone:
      return true;
    case os::CopyResult::kReadFailed:
      LOG(ERROR) << "Dump: Failed to read " << path << ": " << os::ErrorText();
      return true;
    case os::CopyResult::kWriteFailed:
      LogWriteFault();
      return false;
  }
  return false;
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

// Put together first and handed out at its reader's pace, without a lock: a reader that does not read costs nobody
// else.
void DebugCentral::Dump(int fd) {
  const unique_fd report(memfd_create("bthal_dump", MFD_CLOEXEC));
  if (!report.ok()) {
    LOG(ERROR) << "Dump: no memory for the report: " << os::ErrorText();
    return;
  }
  WriteReport(report.get());
  if (os::CopyToReader(report.get(), fd, kReaderPatience)) return;
  if (errno == ETIMEDOUT) {
    LOG(ERROR) << "Dump: the reader takes nothing, giving up";
  } else {
    LogWriteFault();
  }
}

void DebugCentral::WriteReport(int fd) {
  std::string heading;
  AppendTitle(heading, "Controller Firmware Information");
  Write(fd, heading);
  DumpSectionOf(fd, DumpSection::kFirmware);
  Write(fd, FormatRecords());
  DumpSectionOf(fd, DumpSection::kKernelLogs);
  DumpSavedFiles(fd, kCrashInfoDirectory, kCrashInfoPrefix);
  LOG(INFO) << "Dump: write bt coredump files to IBluetoothHci_default.txt";
  DumpSavedFiles(fd, kCoreDumpDirectory, kCoreDumpPrefix);
  DumpSectionOf(fd, DumpSection::kStatistics);
}

std::string DebugCentral::FormatRecords() {
  std::string report;
  const std::lock_guard lock(mutex_);
  AppendTitle(report, "Anchors' Last Appear");
  records_.PrintLastAppearances(report);
  AppendTitle(report, "Anchors' History");
  records_.PrintHistory(report);
  return report;
}

void DebugCentral::DumpSectionOf(int fd, DumpSection section) const {
  for (const auto& [of, source] : dump_sources_) {
    if (of == section) source(fd);
  }
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
