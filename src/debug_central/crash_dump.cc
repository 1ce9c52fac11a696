#define LOG_TAG "bthal.debug_central"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "debug_central/debug_central.h"
#include "debug_central/files.h"
#include "debug_central/saved_dumps.h"
#include "os/error_text.h"
#include "os/file_utils.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr int kDumpFlags = O_RDWR | O_CREAT | O_SYNC;
constexpr mode_t kDumpMode = 0644;
// Dumps on the disk, the one being taken among them.
constexpr size_t kKeptDumps = 8;

std::atomic<unsigned> g_crash_count{0};

// Local time as 2024-03-07_09-05-12.
std::string DumpTimestamp() {
  const time_t now = time(nullptr);
  tm local{};
  localtime_r(&now, &local);
  char text[32];
  strftime(text, sizeof(text), "%Y-%m-%d_%H-%M-%S", &local);
  return text;
}

unique_fd OpenDumpFile(const char* function, const char* kind, const std::string& path) {
  unique_fd fd = os::OpenRegularFile(path, kDumpFlags, kDumpMode);
  if (!fd.ok()) {
    const int error = errno;
    LOG(ERROR) << StringPrintf("%s: Failed to open %s file: %s, failed: %s (%d)\n", function, kind, path.c_str(),
                               strerror(error), error);
  } else if (fchmod(fd.get(), kDumpMode) != 0) {  // whatever mask the process creates its files with
    LOG(ERROR) << function << ": unable to change file permissions " << path << ": " << os::ErrorText();
  }
  return fd;
}

void WriteText(const char* function, int fd, const std::string& path, const std::string& text) {
  if (!::android::base::WriteFully(fd, text.data(), text.size())) {
    LOG(ERROR) << function << ": Failed to write to " << path << ": " << os::ErrorText();
  }
}

// The complaint in its fixed words, and one more line with what it was about.
void LogCopyFault(const char* function, const char* fault, const std::string& path) {
  const int error = errno;
  LOG(ERROR) << function << ": " << fault;
  LOG(ERROR) << StringPrintf("%s: %s: %s (%d)", function, path.c_str(), strerror(error), error);
}

// Copies the file and its permissions, as far as it goes.
void CopyFile(const char* function, const std::string& from, const std::string& to) {
  const unique_fd source = os::OpenRegularFile(from, O_RDONLY);
  if (!source.ok()) return LogCopyFault(function, "Error opening source file", from);
  const unique_fd destination = os::OpenRegularFile(to, O_WRONLY | O_CREAT | O_TRUNC, kDumpMode);
  if (!destination.ok()) return LogCopyFault(function, "Error opening destination file", to);
  if (os::CopyContent(source.get(), destination.get()) != os::CopyResult::kDone)
    LogCopyFault(function, "Error copying file", from);
  struct stat status {};
  if (fstat(source.get(), &status) != 0) return LogCopyFault(function, "Error getting source file permissions", from);
  if (fchmod(destination.get(), status.st_mode & ALLPERMS) != 0) {
    LogCopyFault(function, "Error setting destination file permissions", to);
  }
}

}  // namespace

std::string DebugCentral::dump_suffix() const {
  const std::lock_guard lock(mutex_);
  return dump_suffix_;
}

void DebugCentral::start_crash_dump(bool silent, const std::string& reason) {
  if (!dump_suffix().empty()) return;
  const std::vector<DumpFiles> kinds = DumpFileKinds();
  const std::string suffix = UnusedSuffix(kinds, DumpTimestamp());
  {
    // Whoever sets the suffix takes the dump; nobody waits for it.
    const std::lock_guard lock(mutex_);
    if (!dump_suffix_.empty()) return;
    dump_suffix_ = suffix;
  }
  KeepNewestDumps(kinds, kKeptDumps - 1);
  LOG(ERROR) << StringPrintf("%s: reason: %s, slient_report:%d", __func__, reason.c_str(), silent);
  WriteCoreDump(suffix, reason);
  if (!silent) WriteCrashInfo(suffix, reason);
}

std::vector<DumpFiles> DebugCentral::DumpFileKinds() const {
  std::vector<DumpFiles> kinds = {{kCrashInfoDirectory, kCrashInfoPrefix, kCrashInfoExtension},
                                  {kCoreDumpDirectory, kCoreDumpPrefix, kDumpExtension},
                                  {kCoreDumpDirectory, kSocDumpPrefix, kDumpExtension},
                                  {kCoreDumpDirectory, kChreDumpPrefix, kDumpExtension}};
  for (const BackedUpLog& log : hooks_.logs) {
    const size_t name = log.copy.rfind('/') + 1;
    kinds.push_back({log.copy.substr(0, name), log.copy.substr(name), ""});
  }
  return kinds;
}

void DebugCentral::WriteCoreDump(const std::string& suffix, const std::string& reason) {
  constexpr char kFunction[] = "start_crash_dump";
  const std::string path = std::string(kCoreDumpDirectory) + kCoreDumpPrefix + suffix + kDumpExtension;
  LOG(WARNING) << StringPrintf("%s: Starting to generate Bluetooth ssrdump files: %s", kFunction, path.c_str());
  const unique_fd fd = OpenDumpFile(kFunction, "coredump", path);
  if (!fd.ok()) return;
  WriteText(kFunction, fd.get(), path, "DUMP REASON: " + reason + " - occurred at " + suffix);
  LOG(INFO) << StringPrintf("%s: Request to get Transport Layer Debug Dump", kFunction);
  if (hooks_.transport_dump) hooks_.transport_dump(fd.get());
}

void DebugCentral::WriteCrashInfo(const std::string& suffix, const std::string& reason) {
  constexpr char kFunction[] = "start_crash_dump";
  const std::string path = std::string(kCrashInfoDirectory) + kCrashInfoPrefix + suffix + kCrashInfoExtension;
  const unique_fd fd = OpenDumpFile(kFunction, "crashinfo", path);
  if (!fd.ok()) return;
  const unsigned count = ++g_crash_count;
  WriteText(kFunction, fd.get(), path,
            "crash_reason: " + reason + "\ncrash_count: " + std::to_string(count) + "\ntimestamp: " + suffix + "\n");
}

void DebugCentral::backup_logging_files_before_crash(const std::string& suffix) {
  for (const BackedUpLog& log : hooks_.logs) CopyFile(__func__, log.path, log.copy + suffix);
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
