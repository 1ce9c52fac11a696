// The folder that plays the device's root while a demo runs, and where its logs stay afterwards.
#pragma once

#include <android-base/unique_fd.h>

#include <string>
#include <utility>

namespace bthal::tool {

enum class DemoOutcome { kSuccess, kFailure, kInterrupted };

class DemoRoot {
 public:
  // `what` plays there: "demo".
  explicit DemoRoot(std::string what = "demo") : what_(std::move(what)) {}

  // Without `chosen`: $XDG_RUNTIME_DIR/bthal-demo, emptied of what an earlier demo left; where the user has no such
  // folder, a new one for temporary files. A chosen folder keeps what it has. It is the device root from then on.
  // False, with one line in `error`, before anything in it is changed, where a board, a service or a supervisor is at
  // work.
  bool Prepare(const std::string& chosen, std::string* error);

  const std::string& path() const { return path_; }
  // Not before the board has taken the root.
  bool MakeLogFolder(std::string* error) const;
  // Where this program and the service's standard error write: below the root, as everything else.
  std::string Log(const std::string& name) const { return path_ + "/data/log/" + name; }

  // After success only /data, with the logs, is left; after failure everything; after an interruption nothing. A chosen
  // folder, and any with `keep`, stays as it is.
  void Clean(DemoOutcome outcome, bool keep) const;

 private:
  bool IsInUse(std::string* error) const;
  bool Empty(std::string* error) const;
  std::string MakeFolder(std::string* error) const;
  // What says that a demo made the folder, and may empty it.
  std::string Marker() const { return ".made-by-bthal-" + what_; }

  const std::string what_;

  std::string path_;
  bool ours_ = false;
  ::android::base::unique_fd folder_;  // locked
};

}  // namespace bthal::tool
