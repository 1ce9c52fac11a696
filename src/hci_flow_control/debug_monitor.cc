#define LOG_TAG "bthal.debug_central"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include "bluetooth_bqr.h"
#include "btqnl_protocol/btqnl_protocol.h"
#include "debug_central/debug_central.h"
#include "debug_central/files.h"
#include "hci_flow_control/debug_monitor.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

using ::android::base::StringPrintf;
using hci::HciPacket;

constexpr uint16_t kAnyOpcode = 0;
constexpr uint16_t kVendorCapabilityOpcode = 0xFD53;
constexpr uint16_t kLeSetExtendedScanEnableOpcode = 0x2042;

// Hardware Error event:
//   0x10 | length 1 | hardware code
constexpr size_t kHardwareCodeOffset = 2;
// Command Complete event:
//   0x0E | length | Num_HCI_Command_Packets | opcode (2) | ...
constexpr size_t kOpcodeOffset = 3;

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
  if (event.size() < kOpcodeOffset + sizeof(uint16_t)) return;
  const auto opcode = static_cast<uint16_t>(event[kOpcodeOffset] | event[kOpcodeOffset + 1] << 8);
  LOG(INFO) << StringPrintf("Command Complete Event of LE_SET_EXTENDED_SCAN_ENABLE, opcode:%04hX", opcode);
}

}  // namespace

DebugMonitor::DebugMonitor(DebugCentral& central)
    : watchers_([&central] {
        std::vector<std::unique_ptr<hci::HciEventWatcher>> watchers;
        const auto add = [&](const char* name, uint8_t code, uint16_t opcode, DebugEventWatcher::Handler handler) {
          watchers.push_back(std::make_unique<DebugEventWatcher>(name, code, opcode, std::move(handler)));
        };
        add("debug_HwError", hci::kHardwareErrorEvent, kAnyOpcode, [&central](const HciPacket& event) {
          central.HandleHardwareError(event);
          return false;
        });
        add("debug_VendorEvent", hci::kVendorSpecificEvent, kAnyOpcode,
            [&central](const HciPacket& event) { return central.HandleVendorEvent(event); });
        add("vendorCapabilityEvent", hci::kCommandCompleteEvent, kVendorCapabilityOpcode, [](const HciPacket& event) {
          BluetoothBqr::Get().OnControllerCapability(event);
          return false;
        });
        add("LeSetExtentedScanEnableEvent", hci::kCommandCompleteEvent, kLeSetExtendedScanEnableOpcode,
            [](const HciPacket& event) {
              LogExtendedScanEnable(event);
              return false;
            });
        return watchers;
      }()) {}

void DebugMonitor::Start(hci::HciFlowControl& flow) {
  const std::lock_guard lock(mutex_);
  const auto earlier = monitored_.lock();
  if (earlier && earlier.get() != &flow) {
    for (const auto& watcher : watchers_) earlier->UnregisterEventWatcher(watcher.get());
  }
  monitored_ = hci::MakeHandle(&flow);
  for (const auto& watcher : watchers_) flow.RegisterEventWatcher(watcher.get());
}

void DebugMonitor::Stop() {
  const std::lock_guard lock(mutex_);
  if (const auto flow = monitored_.lock()) {
    for (const auto& watcher : watchers_) flow->UnregisterEventWatcher(watcher.get());
  }
  monitored_.reset();
}

void DebugCentral::StartMonitor(hci::HciFlowControl* flow) {
  if (flow == nullptr) {
    LOG(ERROR) << StringPrintf("%s: Invalid handle!", __func__);
    return;
  }
  monitor_->Start(*flow);
}

void DebugCentral::StopMonitor() { monitor_->Stop(); }

void DebugCentral::HandleHardwareError(const HciPacket& event) {
  LOG(ERROR) << "Received Hardware error event!";
  UpdateRecord(AnchorType::kHardwareErrorEvent, StringPrintf("%s: Received Hardware error event!", "operator()"));
  if (event.size() > kHardwareCodeOffset) LOG(ERROR) << StringPrintf("Error code=%02X", event[kHardwareCodeOffset]);
  // The first reset of a bring-up may well meet a controller in disorder: that is no crash to tell of.
  start_crash_dump(BtQnlProtocol::GetInstacne().GetFirstHciResetFlag(), kReasonHardwareError);
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
