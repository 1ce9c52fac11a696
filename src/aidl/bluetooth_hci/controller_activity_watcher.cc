#define LOG_TAG "bthal.activity_watcher"

#include "aidl/bluetooth_hci/controller_activity_watcher.h"

#include <android-base/logging.h>

#include "bluetooth_Activity.h"

namespace android::hardware::bluetooth::activitywatcher {
namespace {

// Command Complete of Get Controller Activity Energy Info, times in ms, all little-endian:
//   0E | length | credits | 59 FD | status | sending (4) | receiving (4) | idle (4) | energy (4)
constexpr uint16_t kActivityEnergyInfoOpcode = 0xFD59;
constexpr size_t kTxOffset = hci::kCommandCompleteParametersOffset;
constexpr size_t kRxOffset = kTxOffset + 4;
constexpr size_t kIdleOffset = kRxOffset + 4;
constexpr size_t kEnergyOffset = kIdleOffset + 4;
constexpr size_t kAnswerSize = kEnergyOffset + 4;

uint32_t Read32(const hci::HciPacket& event, size_t offset) {
  uint32_t value = 0;
  for (size_t i = 4; i-- > 0;) value = value << 8 | event[offset + i];
  return value;
}

}  // namespace

ControllerActivityWatcher::ControllerActivityWatcher()
    : HciEventWatcher(LOG_TAG, hci::kCommandCompleteEvent, kActivityEnergyInfoOpcode) {}

void ControllerActivityWatcher::initialize() {
  LOG(INFO) << __func__ << ": controller activity goes to the dump only, there is no power-statistics service to tell";
}

bool ControllerActivityWatcher::startWatcher() { return !watching_.exchange(true); }

bool ControllerActivityWatcher::stopWatcher() { return watching_.exchange(false); }

bool ControllerActivityWatcher::OnEventReceive(const hci::HciPacket& event) {
  if (!watching_ || event.size() < kAnswerSize || event[hci::kCommandCompleteStatusOffset] != 0) return false;
  BtActivitiesLogger::Get().UpdateControllerActivity({.tx_ms = Read32(event, kTxOffset),
                                                      .rx_ms = Read32(event, kRxOffset),
                                                      .idle_ms = Read32(event, kIdleOffset),
                                                      .energy_used = Read32(event, kEnergyOffset)});
  return false;
}

}  // namespace android::hardware::bluetooth::activitywatcher
