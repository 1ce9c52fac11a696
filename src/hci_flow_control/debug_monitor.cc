#define LOG_TAG "bthal.debug_central"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include "bluetooth_bqr.h"
#include "debug_central/debug_central.h"
#include "hci_flow_control/debug_monitor.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

using ::android::base::StringPrintf;
using hci::HciPacket;

constexpr uint16_t kAnyOpcode = 0;
constexpr uint16_t kVendorCapabilityOpcode = 0xFD53;
constexpr uint16_t kLeSetExtendedScanEnableOpcode = 0x2042;

class DebugEventWatcher : public hci::HciEventWatcher {
 public:
  using Handler = std::function<bool(const HciPacket&)>;

  DebugEventWatcher(std::string name, uint8_t event_code, uint16_t opcode, Handler handler)
      : HciEventWatcher(std::move(name), event_code, opcode), handler_(std::move(handler)) {}

  bool OnEventReceive(const HciPacket& event) override { return handler_(event); }

 private:
  const Handler handler_;
};

void LogExtendedScanEnable(const HciPacket& event) {
  const uint16_t opcode = hci::ReadOpcode(event, hci::kCommandCompleteOpcodeOffset);
  LOG(INFO) << StringPrintf("Command Complete Event of LE_SET_EXTENDED_SCAN_ENABLE, opcode:%04hX", opcode);
}

}  // namespace

DebugMonitor& DebugMonitor::Get() {
  static auto& monitor = *new DebugMonitor;
  return monitor;
}

DebugMonitor::DebugMonitor() {
  const auto add = [this](const char* name, uint8_t code, uint16_t opcode, DebugEventWatcher::Handler handler) {
    watchers_.push_back(std::make_unique<DebugEventWatcher>(name, code, opcode, std::move(handler)));
  };
  add("debug_HwError", hci::kHardwareErrorEvent, kAnyOpcode, [](const HciPacket& event) {
    DebugCentral::Get().HandleHardwareError(event);
    return false;
  });
  add("debug_VendorEvent", hci::kVendorSpecificEvent, kAnyOpcode,
      [](const HciPacket& event) { return DebugCentral::Get().HandleVendorEvent(event); });
  add("vendorCapabilityEvent", hci::kCommandCompleteEvent, kVendorCapabilityOpcode, [](const HciPacket& event) {
    BluetoothBqr::Get().OnControllerCapability(event);
    return false;
  });
  add("LeSetExtentedScanEnableEvent", hci::kCommandCompleteEvent, kLeSetExtendedScanEnableOpcode,
      [](const HciPacket& event) {
        LogExtendedScanEnable(event);
        return false;
      });
}

void DebugMonitor::StartMonitor(hci::HciFlowControl* flow) {
  if (flow == nullptr) {
    LOG(ERROR) << __func__ << ": Invalid handle!";
    return;
  }
  const std::lock_guard lock(mutex_);
  const auto earlier = monitored_.lock();
  if (earlier && earlier.get() != flow) {
    for (const auto& watcher : watchers_) earlier->UnregisterEventWatcher(watcher.get());
  }
  monitored_ = hci::MakeHandle(flow);
  for (const auto& watcher : watchers_) flow->RegisterEventWatcher(watcher.get());
}

void DebugMonitor::StopMonitor() {
  const std::lock_guard lock(mutex_);
  if (const auto flow = monitored_.lock()) {
    for (const auto& watcher : watchers_) flow->UnregisterEventWatcher(watcher.get());
  }
  monitored_.reset();
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
