// Follows the vendor packet log as it grows, through its rotations.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <functional>
#include <string>

#include "bthal/show/snoop/btsnoop_reader.h"

namespace bthal::tool {

// What the log becomes with the next rotation: of a link, the log that it leads to.
std::string BackupOf(const std::string& log);

class SnoopFollower {
 public:
  // `missed` is called between two packets where a whole file has gone by unread.
  explicit SnoopFollower(std::string path, std::function<void()> missed = {});

  // Opens the log if it is not open, and hands every whole record that has come since to `show`. A log that has been
  // replaced is read to its end before its successor is opened, which may itself be the backup by now. False, with one
  // line in `error`, when it is broken.
  bool Poll(const std::function<void(const SnoopRecord&)>& show, std::string* error);

  bool opened() const { return fd_.ok(); }
  // Whether it ends within a record.
  bool Cut() const { return reader_.pending() != 0; }

 private:
  // The log and its backup, of one moment.
  struct Files {
    ::android::base::unique_fd log;
    int log_error = 0;
    ::android::base::unique_fd last;
  };

  bool Drain(const std::function<void(const SnoopRecord&)>& show, std::string* error);
  bool Replaced() const;
  bool TakeNext(std::string* error);
  Files OpenFiles();
  void WatchRotations();
  void CountRotations();

  const std::string path_;
  std::string last_path_;
  const std::function<void()> missed_;
  ::android::base::unique_fd fd_;
  BtsnoopReader reader_;
  ::android::base::unique_fd watch_;
  int rotations_ = 0;  // since the open file was the log
};

}  // namespace bthal::tool
