#define LOG_TAG "bthal.shim"

#include "shim/shim.h"

#include <mutex>
#include <utility>

#include <android-base/logging.h>
#include <android-base/properties.h>

#include "chre/usf_helper.h"
#include "conf/properties.h"
#include "h4/hw_control/hw_control.h"
#include "h4/uart_link.h"
#include "shim/low_power.h"
#include "shim/path.h"

namespace android::hardware::bluetooth::hci::shim {
namespace {

using hwcontrol::BtHwControl;

// Those who were put on the path last. Process-wide, never destroyed.
struct Connected {
  std::mutex mutex;  // guards what follows; never held across a call out of the shim
  Consumers consumers;
  H4Owner owner;
  int flows = 0;
};

Connected& GetConnected() {
  static auto& connected = *new Connected;
  return connected;
}

}  // namespace

void InitializeCallback(const Consumers& consumers, const H4Owner& owner) {
  if (IsUartPath()) {
    UartLink::Get().Attach(BtHwControl::Get().userial_fd(), consumers, owner);
  } else {
    UsfHelper::Get().InitializeCallback(consumers);
  }
  // What is replaced is destroyed after the lock has been released: it may hold anything.
  Consumers old_consumers = consumers;
  H4Owner old_owner = owner;
  Connected& connected = GetConnected();
  const std::lock_guard lock(connected.mutex);
  std::swap(connected.consumers, old_consumers);
  std::swap(connected.owner, old_owner);
  ++connected.flows;
}

// A flow control dies when its last user leaves, which may be after the next one has been connected: only the last one
// out takes the path away.
void DeinitializeCallback() {
  Consumers gone;
  {
    Connected& connected = GetConnected();
    const std::lock_guard lock(connected.mutex);
    if (--connected.flows > 0) return;
    std::swap(connected.consumers, gone);
  }
  if (IsUartPath()) {
    UartLink::Get().Detach();
  } else {
    UsfHelper::Get().DeinitializeCallback();
  }
}

bool StartReceiving(const std::weak_ptr<const void>& receiver) {
  return IsUartPath() ? UartLink::Get().Watch(receiver) : UsfHelper::Get().StartReceiving(receiver);
}

bool Reconnect(const std::weak_ptr<const void>& receiver) {
  Consumers consumers;
  H4Owner owner;
  {
    Connected& connected = GetConnected();
    const std::lock_guard lock(connected.mutex);
    consumers = connected.consumers;
    owner = connected.owner;
  }
  if (IsUartPath()) {
    UartLink::Get().Attach(BtHwControl::Get().userial_fd(), consumers, owner);
  } else {
    UsfHelper::Get().InitializeCallback(consumers);
  }
  return StartReceiving(receiver);
}

void TakeLineAway(std::chrono::milliseconds patience) {
  if (!IsUartPath()) return UsfHelper::Get().TakeLineAway(patience);
  // First the senders: one that is stuck in a write holds the lock that the receive thread waits for.
  UartLink::Get().Detach(patience);
  UartLink::Get().StopReceiving(patience);
}

bool WaitForSenders(std::chrono::milliseconds patience) {
  return !IsUartPath() || UartLink::Get().WaitForSenders(patience);
}

size_t Send(uint8_t type, const uint8_t* data, size_t length, bool ack_required) {
  const LowPowerLink::Transmission awake;
  if (IsUartPath()) return UartLink::Get().Send(type, data, length);
  return UsfHelper::Get().SendHciToUsf(type, data, length, ack_required);
}

size_t SendBatch(const uint8_t* data, size_t length, bool ack_required) {
  const LowPowerLink::Transmission awake;
  if (IsUartPath()) {
    LOG(ERROR) << "SendBatch unsupported without AOC passthrough";
    return 0;
  }
  return UsfHelper::Get().SendHciBatchToUsf(data, length, ack_required);
}

void BaudrateChange(UartBaudRate rate) {
  if (IsUartPath()) {
    BtHwControl::Get().BaudrateChange(rate);
  } else {
    UsfHelper::Get().BaudrateChange(rate);
  }
}

bool SupportBaudRateChange() { return GetUserialType() != conf::kUserialAutoInit; }

bool LpmSetup() { return IsUartPath() ? BtHwControl::Get().LpmSetup() : UsfHelper::Get().LpmEnable(true); }

void LpmTeardown() {
  if (IsUartPath()) {
    BtHwControl::Get().LpmTeardown();
  } else {
    UsfHelper::Get().LpmEnable(false);
  }
}

// The sensor hub handles the wake line of its path by itself.
bool LpmSuspend() { return !IsUartPath() || BtHwControl::Get().LpmSuspend(); }

bool LpmWakeUp() { return !IsUartPath() || BtHwControl::Get().LpmWakeUp(); }

bool IsLpmRunning() { return IsUartPath() ? BtHwControl::Get().IsLpmRunning() : UsfHelper::Get().IsLpmEnabled(); }

bool IsUserialReady() { return IsUartPath() ? BtHwControl::Get().userial_fd() >= 0 : UsfHelper::Get().IsReady(); }

bool IsUserialAutoInit() { return GetUserialType() == conf::kUserialAutoInit; }

bool IsSerialAocUartPort() { return !IsUartPath(); }

uint32_t GetUserialType() { return userial_type_in_force; }

bool GetTlDebugDump(int fd, const std::string& first_path, const std::string& second_path) {
  if (!IsUartPath()) return UsfHelper::Get().GetChreDebugDump();
  BtHwControl::Get().GetFsDebugDump(fd, first_path);
  BtHwControl::Get().GetFsDebugDump(fd, second_path);
  return true;
}

bool IsBtSnoopLogModeOn() { return ::android::base::GetProperty(conf::kBtSnoopLogModeProperty, "disabled") == "full"; }

}  // namespace android::hardware::bluetooth::hci::shim
