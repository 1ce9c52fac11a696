#include "host/role.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include <android-base/unique_fd.h>

#include "host/device_root.h"
#include "host/run_directory.h"

namespace bthal::host {
namespace {

using android::base::unique_fd;

// A process that was killed still has its claim while the kernel takes it apart.
constexpr std::chrono::milliseconds kPatience{1000};
constexpr std::chrono::milliseconds kLookAgain{5};

std::string LockOf(std::string_view role) {
  return std::string(kRunDirectory).append("/").append(role).append(".lock");
}

// 0 while no other process has a lock on the file.
pid_t Holder(int file) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  if (fcntl(file, F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) return 0;
  return lock.l_pid > 0 ? lock.l_pid : -1;
}

bool Lock(int file) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  return fcntl(file, F_SETLK, &lock) == 0 || (errno != EAGAIN && errno != EACCES);
}

}  // namespace

pid_t ClaimRole(std::string_view role) {
  if (MakeDirectory(kRunDirectory).empty()) return 0;
  unique_fd file(
      open(BelowDeviceRoot(LockOf(role)).c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  if (file.get() < 0) return 0;
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!Lock(file.get())) {
    const pid_t holder = Holder(file.get());
    if (std::chrono::steady_clock::now() > deadline) return holder != 0 ? holder : -1;
    std::this_thread::sleep_for(kLookAgain);
  }
  [[maybe_unused]] const int kept =
      file.release();  // a lock of this kind goes with the first descriptor that is closed
  return 0;
}

pid_t HolderOfRole(std::string_view role) {
  const unique_fd file(open(BelowDeviceRoot(LockOf(role)).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  return file.get() < 0 ? 0 : Holder(file.get());
}

}  // namespace bthal::host
