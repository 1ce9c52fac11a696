#include "bthal/run/hal_claim.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <errno.h>
#include <fcntl.h>
#include <host/device_root.h>
#include <host/run_directory.h>
#include <signal.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>

#include "bthal/run/device_root.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;

// A client that gives the HAL back in order needs far less.
constexpr std::chrono::seconds kPatience{5};

// As it was called, "bthal hci reset".
std::string CommandOf(pid_t pid) {
  std::string line;
  ::android::base::ReadFileToString(StringPrintf("/proc/%d/cmdline", pid), &line);
  for (char& c : line) c = c == '\0' ? ' ' : c;
  return ::android::base::Trim(line);
}

// Who has asked this process to end to have the HAL itself; empty where nobody has.
std::string Taker() {
  const pid_t sender = InterruptSender();
  if (InterruptSignal() != SIGTERM || sender <= 0) return "";
  // Our own command's words may be in that of whoever has started us, as timeout(1).
  std::string program;
  ::android::base::Readlink(StringPrintf("/proc/%d/exe", sender), &program);
  const std::string command = CommandOf(sender);
  if (program != ::android::base::GetExecutablePath() || command.find(" --take-over") == std::string::npos) return "";
  return StringPrintf("another client has taken the HAL over (pid %d, %s)", sender, command.c_str());
}

}  // namespace

bool HalClaim::Open(std::string* error) {
  if (file_.ok()) return true;
  if (!MeetingPlaceIsOpen(error)) return false;
  const std::string path = ::bthal::host::BelowDeviceRoot("/run/bthal/hci-client");
  if (!::bthal::host::MakeDirectory(::bthal::host::kRunDirectory).empty())
    file_.reset(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file_.ok()) *error = StringPrintf("cannot open %s: %s", path.c_str(), strerror(errno));
  return file_.ok();
}

bool HalClaim::Set(short type) {
  struct flock lock = {};
  lock.l_type = type;
  return fcntl(file_.get(), F_SETLK, &lock) == 0;
}

// 0 while nobody else holds it; -1 where its holder has no number here, being in another container.
pid_t HalClaim::Holder() const {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  if (fcntl(file_.get(), F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) return 0;
  return lock.l_pid > 0 ? lock.l_pid : -1;
}

// Whether it has let go. Asked twice who it is, so that a number that has meanwhile been given to another process is
// never signalled.
bool HalClaim::End(pid_t holder) const {
  const ::android::base::unique_fd process(static_cast<int>(syscall(SYS_pidfd_open, holder, 0)));
  for (const int signal : {SIGTERM, SIGKILL}) {
    if (Holder() != holder) return true;
    syscall(SYS_pidfd_send_signal, process.get(), signal, nullptr, 0);
    if (WaitUntil([&] { return Holder() != holder; }, kPatience)) return true;
  }
  return false;
}

bool HalClaim::Take(bool take_over, std::string* error) {
  if (!Open(error)) return false;
  while (!Set(F_WRLCK)) {
    if (errno != EAGAIN && errno != EACCES) {
      *error = StringPrintf("cannot claim the HAL: %s", strerror(errno));
      return false;
    }
    const pid_t holder = Holder();
    if (holder == 0) continue;  // it has just let go
    if (take_over && holder > 0 && End(holder)) continue;
    *error = StringPrintf(take_over ? "another client does not let go of the HAL (pid %d, %s)"
                                    : "another client holds the HAL (pid %d, %s); --take-over ends it",
                          holder, CommandOf(holder).c_str());
    return false;
  }
  return true;
}

void HalClaim::Release() {
  if (!file_.ok()) return;
  const std::string taker = Taker();  // who waits for what follows, and may then be gone soon
  Set(F_UNLCK);
  if (!taker.empty()) Complain(taker);
}

}  // namespace bthal::tool
