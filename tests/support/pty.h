// A pseudo-terminal pair: the service opens one end by path, the test plays the controller on the other.
#pragma once

#include "support/test.h"

namespace bthal::test {

class Pty {
 public:
  Pty();  // raw, with a slave kept open so that the controller's end never hangs up by itself

  int controller() const { return controller_.get(); }
  const std::string& host_path() const { return host_path_; }

  void Write(const Bytes& bytes) const;
  // Reads until `count` bytes have come; fewer only after ten seconds without one.
  Bytes Read(size_t count) const;
  // Ends the line: the host reads end of file from now on.
  void HangUp();

 private:
  unique_fd controller_;
  unique_fd keeper_;
  std::string host_path_;
};

}  // namespace bthal::test
