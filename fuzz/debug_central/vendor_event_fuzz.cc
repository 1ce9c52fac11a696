// Runs of vendor and other watched events through the flow control, as the controller could send them: which the stack
// sees, and what the dump files hold, must follow from their bytes alone. Input: for every event a kind, a length and
// that many bytes.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <android-base/logging.h>

#include "aidl/bluetooth_hci/diagnostics.h"
#include "debug_central/debug_central.h"
#include "hci_flow_control/debug_monitor.h"
#include "hci_flow_control/hci_flow_control.h"

namespace {

namespace fs = std::filesystem;
using android::hardware::bluetooth::DebugCentral;
using android::hardware::bluetooth::hci::Consumers;
using android::hardware::bluetooth::hci::HciFlowControl;
using android::hardware::bluetooth::hci::HciPacket;
using android::hardware::bluetooth::V1_1::qnlbtlinux::debug::DebugMonitor;

void Check(bool holds) {
  if (!holds) abort();
}

// A device root with the folders of the dumps, gone at the end.
class Root {
 public:
  Root() {
    std::string pattern = std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/vendor-event-XXXXXX";
    Check(mkdtemp(pattern.data()) != nullptr);
    path_ = pattern;
    setenv("BTHAL_ROOT", path_.c_str(), 1);
    fs::create_directories(CoreDumps());
  }
  ~Root() { fs::remove_all(path_); }

  std::string CoreDumps() const { return path_ + "/data/vendor/ssrdump/coredump"; }

  void RemoveFiles() const {
    for (const auto& entry : fs::directory_iterator(CoreDumps())) fs::remove(entry);
  }

  uintmax_t SizeOf(const std::string& prefix) const {
    uintmax_t size = 0;
    for (const auto& entry : fs::directory_iterator(CoreDumps())) {
      if (entry.path().filename().string().starts_with(prefix)) size += entry.file_size();
    }
    return size;
  }

 private:
  std::string path_;
};

class Harness {
 public:
  Harness() {
    android::base::SetLogger([](auto...) {});
    android::base::SetMinimumLogSeverity(android::base::FATAL);
    const auto ignore = [](const HciPacket&) {};
    flow_ = std::make_shared<HciFlowControl>(Consumers{ignore, ignore, ignore, ignore, ignore});
    DebugCentral::Get().HasClientConnectWith(true);
    DebugMonitor::Get().StartMonitor(flow_.get());
  }

  bool Reaches(const HciPacket& event) {
    bool seen = false;
    flow_->OnHciEventReady(event, {.event_cb = [&](const HciPacket& delivered) { seen = delivered == event; }});
    return seen;
  }

  const Root& root() const { return root_; }

 private:
  Root root_;
  std::shared_ptr<HciFlowControl> flow_;
};

std::vector<uint8_t> MakeEvent(uint8_t kind, const std::vector<uint8_t>& payload) {
  std::vector<uint8_t> event;
  switch (kind % 4) {
    case 0:
    case 1:
      event = {0xFF, 0x00};
      break;
    case 2:
      event = {0x10, 0x00};  // Hardware Error
      break;
    case 3:
      event = {0x0E, 0x00, 0x01, 0x53, 0xFD};  // Command Complete of the vendor capabilities
      break;
  }
  event.insert(event.end(), payload.begin(),
               payload.begin() + static_cast<ptrdiff_t>(std::min(payload.size(), size_t{257} - event.size())));
  event[1] = static_cast<uint8_t>(event.size() - 2);
  return event;
}

bool IsVendor(const std::vector<uint8_t>& event, size_t size, uint8_t sub_event) {
  return event[0] == 0xFF && event.size() >= size && event[2] == sub_event;
}

bool IsReport(const std::vector<uint8_t>& event, uint8_t id) { return IsVendor(event, 4, 0x58) && event[3] == id; }

bool IsSocFragment(const std::vector<uint8_t>& event) { return IsVendor(event, 9, 0x57) || IsReport(event, 19); }

bool IsTheStacks(const std::vector<uint8_t>& event) {
  for (const uint8_t hidden : {0x1B, 0x57, 0x6A}) {
    if (IsVendor(event, 3, hidden)) return false;
  }
  if (IsReport(event, 5)) return event.size() < 6 || (event[5] != 0x20 && event[5] != 0x7F);
  return !IsReport(event, 6) && !IsReport(event, 19) && !IsReport(event, 20);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Harness harness;
  harness.root().RemoveFiles();
  uintmax_t soc = 0;
  uintmax_t chre = 0;
  while (size >= 2) {
    const uint8_t kind = data[0];
    const size_t length = std::min<size_t>(data[1], size - 2);
    const std::vector<uint8_t> event = MakeEvent(kind, std::vector<uint8_t>(data + 2, data + 2 + length));
    data += 2 + length;
    size -= 2 + length;
    Check(harness.Reaches(event) == IsTheStacks(event));
    if (IsSocFragment(event)) soc += event.size();
    if (IsReport(event, 20)) chre += event.size();
  }
  Check(harness.root().SizeOf("coredump_bt_socdump_") == soc);
  Check(harness.root().SizeOf("coredump_bt_chredump_") == chre);
  return 0;
}
