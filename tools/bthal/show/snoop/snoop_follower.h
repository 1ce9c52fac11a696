// Follows the vendor packet log as it grows, through its rotations.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <functional>
#include <string>

#include "bthal/show/snoop/btsnoop_reader.h"

namespace bthal::tool {

class SnoopFollower {
 public:
  explicit SnoopFollower(std::string path) : path_(std::move(path)) {}

  // Opens the log if it is not open, and hands every whole record that has come since to `show`. A log that has been
  // replaced is read to its end before its successor is opened. False, with one line in `error`, when it is broken.
  bool Poll(const std::function<void(const SnoopRecord&)>& show, std::string* error);

  bool opened() const { return fd_.ok(); }
  // Whether it ends within a record.
  bool Cut() const { return reader_.pending() != 0; }

 private:
  bool Drain(const std::function<void(const SnoopRecord&)>& show, std::string* error);
  bool Replaced() const;

  const std::string path_;
  ::android::base::unique_fd fd_;
  BtsnoopReader reader_;
};

}  // namespace bthal::tool
