// Small file utilities of the diagnostic logs. Paths are the device's own; messages show them so.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <fstream>
#include <string>

#include <android-base/unique_fd.h>

namespace android::hardware::bluetooth::os {

// Copies what is left to read of `from` to `to`; on a failure errno says why, and what had been read before is written.
enum class CopyResult { kDone, kReadFailed, kWriteFailed };
CopyResult CopyContent(int from, int to);

// Copies the file `from` from its start to `to`, at the pace of whoever reads there, who may be slow or not read at
// all. False, with errno, when it takes nothing for `patience`, or not all within ten times as long (ETIMEDOUT), or a
// read or write fails.
bool CopyToReader(int from, int to, std::chrono::milliseconds patience);

// What is left to read of `fd`; on an error what came before it. Of more than `most` bytes the beginning, and `cut` is
// true: not everything that can be read has an end.
std::string ReadAtMost(int fd, size_t most, bool* cut);

// Opens the file at `path` with open's `flags` (and `mode`) and close-on-exec, never waiting for it. Invalid, with
// errno, where it cannot be opened or is something else than a regular file: a FIFO or a device keeps its users
// waiting.
::android::base::unique_fd OpenRegularFile(const std::string& path, int flags, mode_t mode = 0);

// What the one older copy of a diagnostic log is called: its path and this.
inline constexpr char kLastSuffix[] = ".last";

// True when the file can be opened for binary reading and positioned at its end.
bool FileExists(const std::string& path);

// True on success; failures are logged with the system's error text.
bool RenameFile(const std::string& from, const std::string& to);
bool RemoveFile(const std::string& path);

// Moves the log at `path`, if there is one, to its ".last" backup, replacing an older one. Failures are logged in the
// name of `function` under `tag` (null: the default tag) and otherwise ignored: the next log is then written over this
// one.
void MoveLogToLast(const std::string& path, const char* function, const char* tag);

// Gives the file at `path` mode 0644; a failure is logged like those of MoveLogToLast.
void MakeLogReadable(const std::string& path, const char* function, const char* tag);

// Opens `stream` for writing on the log at `path`, emptied. The stream fails, with errno, where that is no regular
// file.
void OpenLogStream(const std::string& path, std::ios::openmode mode, std::ofstream& stream);

// Keeps one ".last" backup of the text log at `path`, opens `stream` on a fresh file of mode 0644 and writes the
// creation time as its first line. Failures are logged and leave the stream in its fail state.
void CreateLogFile(const std::string& path, std::ofstream& stream);

// Flushes and closes an open stream; a failed close sets its fail state.
void CloseLogFileStream(std::ofstream& stream);

}  // namespace android::hardware::bluetooth::os
