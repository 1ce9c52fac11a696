#define LOG_TAG "bthal.flowcontrol"

#include "hci_flow_control/hci_flow_control.h"

#include <android-base/logging.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <utility>

#include "hci_flow_control/state.h"
#include "os/log_throttle.h"
#include "shim/shim.h"

namespace android::hardware::bluetooth::hci {
namespace {

// A batch: packets of
//   H4 type (1) | opcode (2) | parameter length (1) | parameters
constexpr size_t kBatchLengthOffset = 3;
constexpr size_t kBatchHeaderSize = 4;

std::atomic<bool> halted{false};
std::atomic<uint64_t> refused_sends{0};
// The instance that the transport serves; the last one made. Set under flow_control_mutex.
std::atomic<HciFlowControl*> live_instance{nullptr};
// Orders the connecting of a new instance and the disconnecting of an old one whose last user left late. Taken before
// flow_control_mutex.
std::mutex connection_mutex;

}  // namespace

os::FairMutex flow_control_mutex;

HciFlowControl::HciFlowControl(const Consumers& consumers, const H4Owner& owner) {
  std::lock_guard connection(connection_mutex);
  {
    std::lock_guard lock(flow_control_mutex);
    live_instance = this;
  }
  Consumers behind = consumers;
  behind.event_cb = [this, consumers](const HciPacket& event) { OnHciEventReady(event, consumers); };
  shim::InitializeCallback(behind, owner);
  halted = false;
}

HciFlowControl::~HciFlowControl() {
  std::lock_guard connection(connection_mutex);
  {
    std::lock_guard lock(flow_control_mutex);
    if (live_instance == this) live_instance = nullptr;
  }
  shim::DeinitializeCallback();
}

bool HciFlowControl::Refuses(const char* operation) const {
  if (!halted && live_instance == this) return false;
  LOG(WARNING) << operation << ": called after being halted!";
  return true;
}

bool HciFlowControl::RefusesToSend(const char* operation) const {
  const bool refused = Refuses(operation);
  if (refused) ++refused_sends;
  return refused;
}

bool HciFlowControl::RefusesToQueue() const {
  if (cmd_queue_.size() < kMaxQueuedCommands) return false;
  ++refused_sends;
  static os::LogThrottle throttle;
  throttle.Log(LOG_TAG, ::android::base::ERROR, [] {
    return "Send: " + std::to_string(kMaxQueuedCommands) + " commands wait for the controller, one more is refused";
  });
  return true;
}

HciFlowControl::HciCmdFrame& HciFlowControl::Queue(const uint8_t* data, size_t length) {
  if (finished_.empty()) {
    cmd_queue_.emplace_back();
  } else {
    cmd_queue_.splice(cmd_queue_.end(), finished_, finished_.begin());
  }
  HciCmdFrame& frame = cmd_queue_.back();
  frame.bytes.assign(data, data + length);
  frame.sent = false;
  return frame;
}

void HciFlowControl::FinishFront() {
  if (finished_.size() < kKeptFrames) {
    finished_.splice(finished_.end(), cmd_queue_, cmd_queue_.begin());
  } else {
    cmd_queue_.pop_front();
  }
}

uint64_t HciFlowControl::RefusedSends() { return refused_sends; }

size_t HciFlowControl::Send(uint8_t type, const uint8_t* data, size_t length) {
  std::lock_guard lock(flow_control_mutex);
  if (RefusesToSend(__func__)) return 0;
  if (type == kCommandType) {
    if (RefusesToQueue()) return 0;
    HciCmdFrame& frame = Queue(data, length);
    if (cmd_queue_.size() > 1) {
      LOG(DEBUG) << __func__ << ": HCI CMD Frame <" << toString(HciPacket(frame.bytes)) << "> enqueued";
      return length;
    }
    LOG(VERBOSE) << __func__ << ": HCI Command <" << toString(HciPacket(frame.bytes)) << "> sending...";
    frame.sent = true;
  }
  return shim::Send(type, data, length, type == kCommandType);
}

size_t HciFlowControl::SendNoAck(uint8_t type, const uint8_t* data, size_t length) {
  std::lock_guard lock(flow_control_mutex);
  if (RefusesToSend(__func__)) return 0;
  return shim::Send(type, data, length, false);
}

size_t HciFlowControl::SendBatch(const uint8_t* data, size_t length) {
  {
    std::lock_guard lock(flow_control_mutex);
    if (RefusesToSend(__func__)) return 0;
    if (!send_batch_fallback_) {
      const size_t sent = shim::SendBatch(data, length, false);
      if (sent != 0) return sent;
      send_batch_fallback_ = true;
    }
  }
  return SendOneByOne(data, length);
}

size_t HciFlowControl::SendOneByOne(const uint8_t* data, size_t length) {
  size_t offset = 0;
  while (offset < length) {
    const uint8_t* const packet = data + offset;
    const size_t left = length - offset;
    const size_t size = left < kBatchHeaderSize ? kBatchHeaderSize : kBatchHeaderSize + packet[kBatchLengthOffset];
    if (size > left) {
      LOG(ERROR) << "SendBatch: packet of " << size << " bytes at offset " << offset
                 << " does not fit into the batch of " << length << " bytes, which is cut off there";
      return offset;
    }
    SendNoAck(packet[0], packet + 1, size - 1);
    offset += size;
  }
  return length;
}

void HciFlowControl::Halt() {
  std::lock_guard lock(flow_control_mutex);
  if (halted.exchange(true)) {
    LOG(WARNING) << __func__ << ": called after being halted!";
    return;
  }
  const HciFlowControl* const live = live_instance;
  if (live == nullptr) return;
  for (HciEventWatcher* watcher : live->event_watchers_) watcher->OnHalt();
}

void HciFlowControl::RegisterEventWatcher(HciEventWatcher* watcher) {
  std::lock_guard lock(flow_control_mutex);
  if (Refuses(__func__)) return;
  if (std::find(event_watchers_.begin(), event_watchers_.end(), watcher) != event_watchers_.end()) return;
  event_watchers_.push_back(watcher);
  watched_codes_[watcher->event_code()] = true;
}

void HciFlowControl::UnregisterEventWatcher(HciEventWatcher* watcher) {
  std::lock_guard lock(flow_control_mutex);
  if (Refuses(__func__)) return;
  std::erase(event_watchers_, watcher);
  const uint8_t code = watcher->event_code();
  watched_codes_[code] = std::any_of(event_watchers_.begin(), event_watchers_.end(),
                                     [code](const HciEventWatcher* other) { return other->event_code() == code; });
}

void HciFlowControl::DropPendingCommands() {
  std::lock_guard lock(flow_control_mutex);
  cmd_queue_.clear();
}

}  // namespace android::hardware::bluetooth::hci
