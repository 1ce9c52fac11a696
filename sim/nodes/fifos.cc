#include "sim/nodes/fifos.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include "sim/base/files.h"

namespace bthal::sim {
namespace {

constexpr char kPowerType[] = "/sys/class/rfkill/rfkill0/type";
constexpr char kPowerNode[] = "/sys/class/rfkill/rfkill0/state";
constexpr char kLpmNode[] = "/proc/bluetooth/sleep/lpm";
constexpr char kWakeNode[] = "/proc/bluetooth/sleep/btwrite";
constexpr char kWakeLockNode[] = "/sys/power/wake_lock";
constexpr char kWakeUnlockNode[] = "/sys/power/wake_unlock";
constexpr char kUartDebugNode[] = "/sys/devices/platform/155d0000.serial/uart_dbg";

std::string Text(const Bytes& unit) { return {unit.begin(), unit.end()}; }

}  // namespace

void Fifos::Close() {
  for (const Fd& fifo : fifos_) inputs_->Remove(fifo.get());
  for (const std::string& path : paths_) unlink(path.c_str());
  fifos_.clear();
  paths_.clear();
}

OrderedInputs::OnUnit Fifos::Switch(const std::string& node, const std::function<void(bool)>& set) const {
  return [node, set, nonsense = nonsense_](const Bytes& unit) {
    const std::string text = Text(unit);
    if (text == "0" || text == "1") {
      set(text == "1");
    } else {
      nonsense(node + " takes 0 or 1, not '" + text + "'");
    }
  };
}

bool Fifos::AddFifo(const std::string& path, OrderedInputs::Framing framing, OrderedInputs::OnUnit on_unit,
                    std::string* error) {
  const std::string below = root_ + path;
  const std::string fresh = below + ".new";
  if (!MakeFoldersAbove(below, error)) return false;
  unlink(fresh.c_str());
  if (mkfifo(fresh.c_str(), 0660) != 0) {
    *error = "cannot make the FIFO " + fresh + ": " + strerror(errno);
    return false;
  }
  Fd fifo(open(fresh.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!fifo.ok()) {
    *error = "cannot open " + fresh + ": " + strerror(errno);
    return false;
  }
  // Lets go whoever waits in the open of a FIFO that a killed board and its guardian left.
  const Fd stale(open(below.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  if (!guardian_->Publish(fresh, below, fifo.get(), -1, error)) return false;
  paths_.push_back(below);
  if (!inputs_->Add(fifo.get(), below, framing, std::move(on_unit), error)) return false;
  fifos_.push_back(std::move(fifo));
  return true;
}

bool Fifos::Open(const std::string& root, const Callbacks& callbacks, std::string* error) {
  using Framing = OrderedInputs::Framing;
  root_ = root;
  nonsense_ = callbacks.nonsense;
  auto add = [&](const char* path, Framing framing, OrderedInputs::OnUnit on_unit) {
    return AddFifo(path, framing, std::move(on_unit), error);
  };
  auto named = [](const std::function<void(const std::string&)>& told) {
    return [told](const Bytes& unit) { told(Text(unit)); };
  };
  // The service finds the power switch by its type.
  if (!WriteIfAbsent(root_ + kPowerType, "bluetooth\n", error)) return false;
  if (!add(kPowerNode, Framing::kCharacter, Switch(kPowerNode, callbacks.power))) return false;
  if (!add(kLpmNode, Framing::kCharacter, Switch(kLpmNode, callbacks.lpm_driver))) return false;
  if (!add(kWakeNode, Framing::kCharacter, Switch(kWakeNode, callbacks.wake_line))) return false;
  if (!add(kWakeLockNode, Framing::kLine, named(callbacks.wake_lock))) return false;
  if (!add(kWakeUnlockNode, Framing::kLine, named(callbacks.wake_unlock))) return false;
  return add(kUartDebugNode, Framing::kCharacter, named(callbacks.uart_debug));
}

}  // namespace bthal::sim
