// The folder that plays the device's root while a demo runs, and where its logs stay afterwards.
#pragma once

#include <android-base/unique_fd.h>

#include <string>

namespace bthal::tool {

enum class DemoOutcome { kSuccess, kFailure, kInterrupted };

class DemoRoot {
 public:
  // Without `chosen`: $TMPDIR/bthal-demo, emptied of what an earlier demo left. A chosen folder keeps what it has.
  // False with one line in `error`.
  bool Prepare(const std::string& chosen, std::string* error);

  const std::string& path() const { return path_; }
  // Where this program and the service's standard error write: below the root, as everything else.
  std::string Log(const std::string& name) const { return path_ + "/data/log/" + name; }

  // After success only /data, with the logs, is left; after failure everything; after an interruption nothing. A chosen
  // folder, and any with `keep`, stays as it is.
  void Clean(DemoOutcome outcome, bool keep) const;

 private:
  bool Occupy(const std::string& path, std::string* error);

  std::string path_;
  bool ours_ = false;
  ::android::base::unique_fd lock_;
};

}  // namespace bthal::tool
