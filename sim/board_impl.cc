#include "sim/board_impl.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <algorithm>

#include "sim/base/files.h"
#include "sim/controller/emulator_address.h"
#include "sim/controller/firmware/patch_file.h"
#include "sim/furnish.h"

namespace bthal::sim {
namespace {

constexpr char kUart[] = "/dev/ttySAC16";
constexpr int kPacedPriority = -15;
constexpr char kLockFile[] = "/.board.lock";
constexpr char kGuardianLockFile[] = "/.board.guardian.lock";
constexpr size_t kLongestName = 247;

}  // namespace

bool Board::Impl::Check(std::string* error) const {
  const bool no_root = options_.root.empty() || options_.root == "/";
  if (no_root && !options_.only_coex) {
    *error = "the board needs a device root of its own to play in: give it a folder, such as ~/board";
  } else if (ParseAddress(options_.address).empty()) {
    *error = "'" + options_.address + "' is no Bluetooth address; write it as 22:22:5A:01:02:03";
  } else if (options_.patch_records == 0 || options_.patch_records > kMaxPatchRecords) {
    *error = "a patch has 1 to " + std::to_string(kMaxPatchRecords) + " records";
  } else if (options_.local_name.size() > kLongestName) {
    *error = "a local name has at most " + std::to_string(kLongestName) + " bytes";
  } else {
    return true;
  }
  return false;
}

bool Board::Impl::Lock(std::string* error) {
  if (options_.only_coex) return true;
  const std::string path = options_.root + kLockFile;
  lock_.Reset(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (!lock_.ok()) {
    *error = "cannot write to the device root " + options_.root + ": " + strerror(errno);
    return false;
  }
  if (flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return true;
  *error = "another virtual board plays in " + options_.root + "; stop it, or use another device root";
  return false;
}

bool Board::Impl::AddFaults(std::string* error) {
  for (const std::string& text : options_.faults) {
    if (text.starts_with(kHubFaultPrefix)) {
      HubFault fault;
      if (!ParseHubFault(text, &fault, error)) return false;
      hub_.faults().Add(std::move(fault));
      continue;
    }
    Fault fault;
    if (!ParseFault(text, &fault, error)) return false;
    faults_.Add(std::move(fault));
  }
  return true;
}

bool Board::Impl::OpenFifos(std::string* error) {
  Fifos::Callbacks callbacks;
  callbacks.power = [this](bool on) { controller_.SetPower(on); };
  callbacks.wake_line = [this](bool high) { controller_.SetWakeLine(high); };
  callbacks.lpm_driver = [this](bool on) { journal_.Record(WireEvent::kLpmDriver, on ? 1 : 0); };
  callbacks.wake_lock = [this](const std::string& name) { journal_.Record(WireEvent::kWakeLock, 0, name); };
  callbacks.wake_unlock = [this](const std::string& name) { journal_.Record(WireEvent::kWakeUnlock, 0, name); };
  callbacks.uart_debug = [this](const std::string& text) { journal_.Record(WireEvent::kUartDebug, 0, text); };
  callbacks.nonsense = [this](const std::string& what) { journal_.Record(WireEvent::kProtocolError, 0, what); };
  return fifos_.Open(options_.root, callbacks, error);
}

bool Board::Impl::OpenCoex(std::string* error) {
  const std::string lock = options_.only_coex ? std::string() : options_.root + kGuardianLockFile;
  return guardian_.Start(lock, error) && inputs_.Open(error) && coex_.Open(options_.root, error);
}

// Keys are made from the addresses at both ends of a link: what the host takes for its own must be what others see, and
// that is the emulator's.
bool Board::Impl::OpenBackend(std::string* error) {
  if (!backend_.Connect(options_.backend, error)) return false;
  const Bytes address = AskEmulatorsAddress(&backend_, error);
  if (address.empty()) return false;
  controller_.FixAddress(address);
  options_.provisioned_address = AddressText(address);
  return true;
}

bool Board::Impl::OpenTheRest(std::string* error) {
  if (!options_.backend.empty() && !OpenBackend(error)) return false;
  if (options_.furnish && !Furnish(options_, error)) return false;
  const std::string uart = options_.root + kUart;
  const auto obey = [this](const std::string& question) { return Obey(question); };
  return OpenFifos(error) && MakeFoldersAbove(uart, error) && line_.Open(uart, error) &&
         control_.Open(options_.root, obey, error);
}

bool Board::Impl::Start(std::string* error) {
  if (tasks_.ok()) {
    *error = "a board plays only once; make another";
    return false;
  }
  if (!Check(error) || !MakeFolder(options_.root.empty() ? "/" : options_.root, error) || !Lock(error)) return false;
  if (!AddFaults(error) || !OpenCoex(error)) return false;
  if (!options_.only_coex && !OpenTheRest(error)) return false;
  if (!tasks_.Open(error)) return false;
  if (options_.hub && !hub_.Start(error)) return false;
  thread_ = std::thread([this] { Run(); });
  return true;
}

void Board::Impl::Stop() {
  if (!thread_.joinable()) return;
  hub_.Stop();
  stop_ = true;
  Ask([] {});
  thread_.join();
  // What is gone fails at once for whoever opens it; what is left without a reader would hang.
  fifos_.Close();
  coex_.Close();
  line_.Close();
  control_.Close();
  guardian_.Stop();
  lock_.Reset();
}

void Board::Impl::Run() {
  // The kernel may be late by 50 us otherwise, which adds up over a paced download.
  prctl(PR_SET_TIMERSLACK, 1UL);
  // Silicon that keeps its time does not wait for a processor; where this is not allowed, it does.
  if (options_.pace) (void)setpriority(PRIO_PROCESS, 0, kPacedPriority);
  prctl(PR_SET_NAME, "virtual board");
  controller_.StrikeNow();
  while (!stop_) {
    Wait();
    if (called_) tasks_.Run();
    const Clock::time_point now = Clock::now();
    controller_.timers().RunDue(now);
    // Read first, obey later: whatever was written to a node before these bytes were sent is known by then.
    Arrived arrived = options_.only_coex ? Arrived() : line_.Receive(now);
    inputs_.Drain();
    controller_.Receive(line_.Hear(std::move(arrived)));
    if (backend_.fd() >= 0) {
      backend_.Serve([this](uint8_t type, Bytes packet) { controller_.ReceiveFromEmulator(type, std::move(packet)); });
    }
    if (asked_) control_.Serve();
    if (!options_.only_coex) line_.Flush(Clock::now());
    waiting_ = line_.Waiting();
  }
}

void Board::Impl::Wait() {
  const Clock::time_point now = Clock::now();
  std::vector<pollfd> polls{{tasks_.fd(), POLLIN, 0}};
  for (const int fd : inputs_.Descriptors()) polls.push_back({fd, POLLIN, 0});
  if (!options_.only_coex) polls.push_back({line_.fd(), line_.PollEvents(now), 0});
  if (backend_.fd() >= 0) polls.push_back({backend_.fd(), backend_.PollEvents(), 0});
  const auto others = static_cast<ptrdiff_t>(polls.size());
  control_.AddPolls(&polls);
  std::optional<Clock::time_point> next = controller_.timers().Next();
  if (const auto line = line_.NextLook(now); line && (!next || *line < *next)) next = line;
  timespec timeout{};
  if (next && *next > now) {
    const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(*next - now).count();
    timeout = {static_cast<time_t>(rest / 1'000'000'000), static_cast<long>(rest % 1'000'000'000)};
  }
  if (ppoll(polls.data(), polls.size(), next ? &timeout : nullptr, nullptr) < 0 && errno != EINTR) {
    journal_.Record(WireEvent::kProtocolError, 0, std::string("the board cannot wait: ") + strerror(errno));
    stop_ = true;
  }
  called_ = polls.front().revents != 0;
  asked_ = std::any_of(polls.begin() + others, polls.end(), [](const pollfd& poll) { return poll.revents != 0; });
}

}  // namespace bthal::sim
