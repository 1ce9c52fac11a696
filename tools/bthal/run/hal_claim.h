// Which process has the HAL. The service cannot be asked, and dies on a second client, so our clients tell one another:
// by a lock below the device root, of which the kernel knows the holder, and which ends with it. Clients that are not
// ours take no part in this.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <string>

namespace bthal::tool {

class HalClaim {
 public:
  // To be called before the service is looked for: one that has yet to learn of a client's death takes no new ones
  // until it has. While another process holds the claim it is asked to end (`take_over`), or this fails with one line
  // in `error`.
  bool Take(bool take_over, std::string* error);
  void Release();  // any thread

 private:
  bool Open(std::string* error);
  bool Set(short type);
  pid_t Holder() const;
  bool End(pid_t holder) const;

  ::android::base::unique_fd file_;
};

}  // namespace bthal::tool
