#define LOG_TAG "bthal.shim"

#include "shim/shim.h"

#include <log/log.h>

#include <utility>

#include <android-base/properties.h>

#include "btqnl_protocol/btqnl_protocol.h"
#include "chre/usf_helper.h"
#include "debug_central/debug_central.h"
#include "h4/hw_control/hw_control.h"
#include "hci_flow_control/hci_flow_control.h"
#include "shim/state.h"

namespace android::hardware::bluetooth::hci::shim {
namespace {

using ::android::base::GetProperty;
using hwcontrol::BtHwControl;

constexpr char kBtSnoopLogModeProperty[] = "persist.bluetooth.btsnooplogmode";

}  // namespace

State& GetState() {
  static auto& state = *new State;
  return state;
}

HciFlowControl* InitializeHciHandle(HciPacketCallback event_cb, HciPacketCallback acl_cb, HciPacketCallback sco_cb,
                                    HciPacketCallback iso_cb, HciPacketCallback thread_cb) {
  if (!InitializeController()) return nullptr;
  // Its constructor calls InitializeCallback below.
  auto flow = std::make_shared<HciFlowControl>(std::move(event_cb), std::move(acl_cb), std::move(sco_cb),
                                               std::move(iso_cb), std::move(thread_cb));
  {
    const std::lock_guard lock(GetState().mutex);
    GetState().flow = flow;
  }
  if (IsUartPath() && !UartLink::Get().Watch(flow)) {
    Deinitialize();
    return nullptr;
  }
  return flow.get();
}

void InitializeCallback(HciPacketCallback event_cb, HciPacketCallback acl_cb, HciPacketCallback sco_cb,
                        HciPacketCallback iso_cb, HciPacketCallback thread_cb) {
  Consumers consumers{std::move(event_cb), std::move(acl_cb), std::move(sco_cb), std::move(iso_cb),
                      std::move(thread_cb)};
  if (IsUartPath()) {
    UartLink::Get().Attach(BtHwControl::Get().userial_fd(), consumers);
  } else {
    UsfHelper::Get().InitializeCallback(consumers.event_cb, consumers.acl_cb, consumers.sco_cb, consumers.iso_cb,
                                        consumers.thread_cb);
  }
  // What is replaced is destroyed after the lock has been released: it may hold anything.
  const std::lock_guard lock(GetState().mutex);
  std::swap(GetState().consumers, consumers);
  ++GetState().connected_flows;
}

// A flow control dies when its last user leaves, which may be after the next one has been connected: only the last one
// out takes the path away.
void DeinitializeCallback() {
  Consumers gone;
  {
    const std::lock_guard lock(GetState().mutex);
    if (--GetState().connected_flows > 0) return;
    std::swap(GetState().consumers, gone);
  }
  if (IsUartPath()) {
    UartLink::Get().Detach();
  } else {
    UsfHelper::Get().DeinitializeCallback();
  }
}

bool ReconnectUart() {
  const std::shared_ptr<HciFlowControl> flow = CurrentFlow();
  if (flow == nullptr) return true;
  Consumers consumers;
  {
    const std::lock_guard lock(GetState().mutex);
    consumers = GetState().consumers;
  }
  UartLink::Get().Attach(BtHwControl::Get().userial_fd(), consumers);
  if (!UartLink::Get().Watch(flow)) return false;
  // Last, so that a command that slipped out while there was no line is forgotten with the others.
  flow->DropPendingCommands();
  return true;
}

void Deinitialize() {
  ALOGI("%s", __func__);
  if (IsUartPath()) {
    // First the senders: one that is stuck in a write holds the lock that both the receive thread and Halt wait for.
    UartLink::Get().Detach();
    UartLink::Get().StopReceiving();
  }
  std::shared_ptr<HciFlowControl> flow;
  {
    const std::lock_guard lock(GetState().mutex);
    flow = std::exchange(GetState().flow, nullptr);
  }
  if (flow != nullptr) {
    HciFlowControl::Halt();
    flow.reset();
  }
  DeinitializeController();
  GetState().userial_type = kUserialDeinitialized;
}

size_t Send(uint8_t type, const uint8_t* data, size_t length, bool ack_required) {
  if (IsUartPath()) return UartLink::Get().Send(type, data, length);
  return UsfHelper::Get().SendHciToUsf(type, data, length, ack_required);
}

size_t SendBatch(const uint8_t* data, size_t length, bool ack_required) {
  if (IsUartPath()) {
    ALOGE("SendBatch unsupported without AOC passthrough");
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

bool SupportBaudRateChange() { return GetUserialType() != kUserialAutoInit; }

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

bool IsUserialAutoInit() { return GetUserialType() == kUserialAutoInit; }

bool IsInitialized() { return CurrentFlow() != nullptr && IsUserialReady(); }

bool IsSerialAocUartPort() { return !IsUartPath(); }

uint32_t GetUserialType() { return GetState().userial_type; }

bool GetTlDebugDump(int fd, const std::string& first_path, const std::string& second_path) {
  if (!IsUartPath()) return UsfHelper::Get().GetChreDebugDump();
  BtHwControl::Get().GetFsDebugDump(fd, first_path);
  BtHwControl::Get().GetFsDebugDump(fd, second_path);
  return true;
}

void CatchException(BqrErrorCode code, const std::string& info) {
  BtQnlProtocol::GetInstacne().Shutdown();
  DebugCentral::Get().ReportBqrError(code, info);
  Deinitialize();
}

bool IsBtSnoopLogModeOn() { return GetProperty(kBtSnoopLogModeProperty, "disabled") == "full"; }

}  // namespace android::hardware::bluetooth::hci::shim
