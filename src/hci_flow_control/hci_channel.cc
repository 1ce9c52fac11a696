#define LOG_TAG "bthal.shim"

#include "hci_flow_control/hci_channel.h"

#include <android-base/logging.h>

#include <memory>
#include <mutex>
#include <utility>

#include "hci_flow_control/hci_flow_control.h"
#include "shim/shim.h"

namespace android::hardware::bluetooth::hci::channel {
namespace {

// Process-wide, never destroyed.
struct Channel {
  std::mutex mutex;  // guards what follows; never held across a call out of this file
  std::shared_ptr<HciFlowControl> flow;
  std::function<void()> on_exception;
  bool ready = false;
};

Channel& GetChannel() {
  static auto& channel = *new Channel;
  return channel;
}

std::shared_ptr<HciFlowControl> CurrentFlow() {
  const std::lock_guard lock(GetChannel().mutex);
  return GetChannel().flow;
}

bool IsReady() {
  const std::lock_guard lock(GetChannel().mutex);
  return GetChannel().ready;
}

}  // namespace

HciFlowControl* InitializeHciHandle(const Consumers& consumers, std::function<void()> on_exception) {
  if (!shim::InitializeController()) return nullptr;
  const H4Owner owner{.is_initialized = IsInitialized, .is_ready = IsReady, .catch_exception = CatchException};
  auto flow = std::make_shared<HciFlowControl>(consumers, owner);
  {
    const std::lock_guard lock(GetChannel().mutex);
    GetChannel().flow = flow;
    GetChannel().on_exception.swap(on_exception);
    GetChannel().ready = false;
  }
  if (!shim::StartReceiving(flow)) {
    Deinitialize();
    return nullptr;
  }
  return flow.get();
}

void Deinitialize(std::chrono::milliseconds patience) {
  LOG(INFO) << __func__;
  shim::TakeLineAway(patience);
  std::shared_ptr<HciFlowControl> flow;
  {
    const std::lock_guard lock(GetChannel().mutex);
    flow = std::exchange(GetChannel().flow, nullptr);
    GetChannel().ready = false;
  }
  if (flow != nullptr) {
    HciFlowControl::Halt();
    flow.reset();
  }
  shim::Deinitialize();
}

bool ReopenController() {
  shim::DeinitializeController();
  if (!shim::InitializeController()) return false;
  const std::shared_ptr<HciFlowControl> flow = CurrentFlow();
  if (flow == nullptr) return true;
  if (!shim::Reconnect(flow)) {
    shim::DeinitializeController();
    return false;
  }
  // Last, so that a command that slipped out while there was no line is forgotten with the others.
  flow->DropPendingCommands();
  return true;
}

bool IsInitialized() { return CurrentFlow() != nullptr && shim::IsUserialReady(); }

void MarkReady() {
  {
    const std::lock_guard lock(GetChannel().mutex);
    GetChannel().ready = GetChannel().flow != nullptr;
  }
  // The receive thread has looked at it already, and waits before it does again.
  UartLink::Get().ReportHangUp();
}

void CatchException(BqrErrorCode code, const std::string& info) {
  std::function<void()> on_exception;
  {
    const std::lock_guard lock(GetChannel().mutex);
    on_exception = GetChannel().on_exception;
  }
  if (on_exception) on_exception();
  DebugCentral::Get().ReportBqrError(code, info);
  Deinitialize();
}

}  // namespace android::hardware::bluetooth::hci::channel
