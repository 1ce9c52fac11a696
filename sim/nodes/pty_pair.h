// A raw pseudo-terminal that plays a character device below the device root.
#pragma once

#include <string>

#include "sim/base/fd.h"
#include "sim/nodes/guardian.h"

namespace bthal::sim {

class PtyPair {
 public:
  explicit PtyPair(const Guardian* guardian) : guardian_(guardian) {}  // which outlives it
  PtyPair(const PtyPair&) = delete;
  PtyPair& operator=(const PtyPair&) = delete;
  ~PtyPair() { Close(); }

  // Makes the pair and points the symbolic link at its host end, in one step for whoever opens the link meanwhile. A
  // link left by an earlier run is replaced; anything else in its place is left alone and named in `error`.
  bool Open(const std::string& link, std::string* error);
  // Ends this pair, so that whoever has the host end open reads end of file, and puts a fresh pair behind the link.
  bool HangUp(std::string* error);
  // Ends it for good and removes the link, if it is still ours.
  void Close();

  int board_end() const { return master_.get(); }  // does not block
  int host_end() const { return keeper_.get(); }   // kept open so that a host that closes its own does not hang up ours
  const std::string& host_path() const { return host_path_; }

 private:
  const Guardian* const guardian_;
  Fd master_;
  Fd keeper_;
  std::string host_path_;
  std::string link_;
};

}  // namespace bthal::sim
