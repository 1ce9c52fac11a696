#include "os/file_utils.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include "os/device_path.h"
#include "os/log_as.h"

namespace android::hardware::bluetooth::os {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr mode_t kLogMode = 0644;
constexpr int kPatiencesForAll = 10;
constexpr mode_t kNewFileMode = 0666;  // less the process's mask, as a stream makes its files
constexpr size_t kCopyChunk = size_t{64} * 1024;

// A terminal that takes anything is writable, and a blocking write of more than it takes waits for its reader. Whose
// descriptor it is keeps its flags: it is opened anew. Nothing where that is not needed, or not allowed.
unique_fd NonBlockingTerminal(int fd) {
  struct stat status {};
  if (fstat(fd, &status) != 0 || !S_ISCHR(status.st_mode)) return {};
  const std::string own = "/proc/self/fd/" + std::to_string(fd);
  return unique_fd(TEMP_FAILURE_RETRY(open(own.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)));
}

// Part of it, or EAGAIN, where a socket or a terminal has less room than that.
ssize_t WriteSome(int fd, const char* data, size_t size) {
  const ssize_t sent = TEMP_FAILURE_RETRY(send(fd, data, size, MSG_DONTWAIT | MSG_NOSIGNAL));
  return sent < 0 && errno == ENOTSOCK ? TEMP_FAILURE_RETRY(write(fd, data, size)) : sent;
}

// Year, month, day, hour, minute and second of local time in plain decimal: 2024-3-7_9-5-12.
std::string CreationTime() {
  const time_t now = time(nullptr);
  tm local{};
  localtime_r(&now, &local);
  return StringPrintf("%d-%d-%d_%d-%d-%d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                      local.tm_min, local.tm_sec);
}

}  // namespace

CopyResult CopyContent(int from, int to) {
  const auto chunk = std::make_unique<std::array<char, kCopyChunk>>();
  for (;;) {
    const ssize_t n = TEMP_FAILURE_RETRY(read(from, chunk->data(), chunk->size()));
    if (n < 0) return CopyResult::kReadFailed;
    if (n == 0) return CopyResult::kDone;
    if (!::android::base::WriteFully(to, chunk->data(), static_cast<size_t>(n))) return CopyResult::kWriteFailed;
  }
}

std::string ReadAtMost(int fd, size_t most, bool* cut) {
  std::string content;
  for (*cut = false; !*cut;) {
    const size_t size = content.size();
    content.resize(size + kCopyChunk);
    const ssize_t count = TEMP_FAILURE_RETRY(read(fd, content.data() + size, kCopyChunk));
    content.resize(size + (count < 0 ? 0 : static_cast<size_t>(count)));
    if (count <= 0) break;
    *cut = content.size() > most;
  }
  if (*cut) content.resize(most);
  return content;
}

bool CopyToReader(int from, int to, std::chrono::milliseconds patience) {
  // What a pipe that is writable takes without blocking.
  std::array<char, PIPE_BUF> chunk;
  const auto deadline = std::chrono::steady_clock::now() + kPatiencesForAll * patience;
  const unique_fd terminal = NonBlockingTerminal(to);
  if (terminal.ok()) to = terminal.get();
  off_t done = 0;
  for (;;) {
    const ssize_t n = TEMP_FAILURE_RETRY(pread(from, chunk.data(), chunk.size(), done));
    if (n <= 0) return n == 0;
    pollfd writable{to, POLLOUT, 0};
    const int ready = TEMP_FAILURE_RETRY(poll(&writable, 1, static_cast<int>(patience.count())));
    if (ready < 0) return false;
    if (ready == 0 || std::chrono::steady_clock::now() >= deadline) {
      errno = ETIMEDOUT;
      return false;
    }
    const ssize_t written = WriteSome(to, chunk.data(), static_cast<size_t>(n));
    if (written < 0 && errno != EAGAIN) return false;
    if (written > 0) done += written;
  }
}

unique_fd OpenRegularFile(const std::string& path, int flags, mode_t mode) {
  unique_fd fd(TEMP_FAILURE_RETRY(open(DevicePath(path).c_str(), flags | O_NONBLOCK | O_CLOEXEC, mode)));
  struct stat status {};
  if (!fd.ok() || (fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode))) return fd;
  fd.reset();
  errno = S_ISDIR(status.st_mode) ? EISDIR : ENXIO;
  return fd;
}

bool FileExists(const std::string& path) {
  const unique_fd file(TEMP_FAILURE_RETRY(open(DevicePath(path).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)));
  return file.ok() && lseek(file.get(), 0, SEEK_END) >= 0;
}

bool RenameFile(const std::string& from, const std::string& to) {
  if (rename(DevicePath(from).c_str(), DevicePath(to).c_str()) == 0) return true;
  LOG(ERROR) << StringPrintf("unable to rename file from '%s' to '%s', error: %s", from.c_str(), to.c_str(),
                             strerror(errno));
  return false;
}

bool RemoveFile(const std::string& path) {
  if (remove(DevicePath(path).c_str()) == 0) return true;
  LOG(ERROR) << StringPrintf("unable to remove file '%s', error: %s", path.c_str(), strerror(errno));
  return false;
}

void MakeLogReadable(const std::string& path, const char* function, const char* tag) {
  if (chmod(DevicePath(path).c_str(), kLogMode) == 0) return;
  LogAs(tag, ::android::base::ERROR, StringPrintf("%s: unable to change file permissions %s", function, path.c_str()));
}

void MoveLogToLast(const std::string& path, const char* function, const char* tag) {
  if (!FileExists(path)) {
    LogAs(tag, ::android::base::INFO,
          StringPrintf("Previous log file \"%s\" does not exist, skip renaming", path.c_str()));
    return;
  }
  const std::string last = path + kLastSuffix;
  MakeLogReadable(last, function, tag);
  if (RenameFile(path, last)) return;
  LogAs(tag, ::android::base::ERROR,
        StringPrintf("Unabled to rename existing snoop log from \"%s\" to \"%s\"", path.c_str(), last.c_str()));
}

void OpenLogStream(const std::string& path, std::ios::openmode mode, std::ofstream& stream) {
  if (OpenRegularFile(path, O_WRONLY | O_CREAT, kNewFileMode).ok()) {
    stream.open(DevicePath(path), mode | std::ios::trunc);
  } else {
    stream.setstate(std::ios::failbit);
  }
}

void CreateLogFile(const std::string& path, std::ofstream& stream) {
  LOG(INFO) << StringPrintf("%s: log_file_path:%s", __func__, path.c_str());
  MoveLogToLast(path, __func__, nullptr);
  OpenLogStream(path, std::ios::out, stream);
  const int open_error = errno;
  MakeLogReadable(path, __func__, nullptr);
  if (!stream.good()) {
    // The text names the energy log, for which it was written first, whichever log this is.
    LOG(ERROR) << StringPrintf("%s: Unable to open bqr energy log at \"%s\", error: \"%s\"", __func__, path.c_str(),
                               strerror(open_error));
    return;
  }
  stream << CreationTime() << '\n' << std::flush;
}

void CloseLogFileStream(std::ofstream& stream) {
  if (!stream.is_open()) return;
  stream.flush();
  stream.close();
}

}  // namespace android::hardware::bluetooth::os
