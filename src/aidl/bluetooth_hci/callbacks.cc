#define LOG_TAG "bthal.aidl.qnlbtlinux"

#include "aidl/bluetooth_hci/callbacks.h"

#include <android-base/logging.h>

#include <utility>

#include "aidl/bluetooth_hci/client.h"
#include "aidl/bluetooth_hci/packet_text.h"
#include "bluetooth_Activity.h"
#include "debug_central/debug_central.h"
#include "os/log_throttle.h"
#include "thread/thread_dispatcher.h"
#include "vnd_snoop_logger.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

using Direction = VndSnoopLogger::Direction;
using PacketType = VndSnoopLogger::PacketType;

// Number Of Completed Packets event:
//   13 | length | number of handles | first handle (2) | first count (2) | ...
constexpr size_t kCompletedHandleHighOffset = 4;

// ACL and ISO data:
//   handle and flags (2) | length (2) | payload
// The handle is the low 12 bits of the first two bytes.
constexpr size_t kHandleLowOffset = 0;
constexpr size_t kHandleHighOffset = 1;
constexpr size_t kHandleSize = 2;
constexpr uint8_t kHandleHighMask = 0x0F;

// The controller marks what did not come from the stack's own connections in the upper bits of the handle.
constexpr uint8_t kMark = 0x0F;                // ACL: sent by the controller itself
constexpr uint8_t kCompletedMark = 0x0E;       // events: completes what was marked so
constexpr uint8_t kIsoSentMark = 0x0E;         // ISO: sent by the controller itself
constexpr uint8_t kIsoReceivedMark = 0x0D;     // ISO: received, and consumed by the controller
constexpr uint16_t kDiagnosticHandle = 0xFF1;  // the controller's diagnostic stream: never the stack's
constexpr uint16_t kSnoopOnlyHandle = 0xDDD;

void DeliverEvent(const hci::HciPacket& packet, DebugAnchor& anchor) {
  static Delivery delivery{&IBluetoothHciCallbacks::hciEventReceived,
                           {"Unable to callback hciEvent to Stack", {}},
                           {"hciEvent: g_cb == nullptr", {}}};
  Deliver(packet, delivery, std::move(anchor));
}

void DeliverAcl(const hci::HciPacket& packet, DebugAnchor& anchor) {
  static Delivery delivery{&IBluetoothHciCallbacks::aclDataReceived,
                           {"Unable to callback aclData to Stack", {}},
                           {"aclData: g_cb == nullptr", {}}};
  Deliver(packet, delivery, std::move(anchor));
}

void DeliverSco(const hci::HciPacket& packet, DebugAnchor& anchor) {
  static Delivery delivery{&IBluetoothHciCallbacks::scoDataReceived,
                           {"Unable to callback scoData to Stack", {}},
                           {"scoData: g_cb == nullptr", {}}};
  Deliver(packet, delivery, std::move(anchor));
}

void DeliverIso(const hci::HciPacket& packet, DebugAnchor& anchor) {
  static Delivery delivery{&IBluetoothHciCallbacks::isoDataReceived,
                           {"Unable to callback isoData to Stack", {}},
                           {"isoData: g_cb == nullptr", {}}};
  Deliver(packet, delivery, std::move(anchor));
}

void Capture(const hci::HciPacket& packet, Direction direction, PacketType type) {
  VndSnoopLogger::Get().Capture(packet, direction, type);
}

void CaptureUnmarked(const hci::HciPacket& packet, size_t offset, uint8_t mark, Direction direction, PacketType type) {
  hci::HciPacket unmarked = packet;
  unmarked[offset] = static_cast<uint8_t>(unmarked[offset] & ~mark);
  Capture(unmarked, direction, type);
}

bool HasBits(uint8_t byte, uint8_t bits) { return (byte & bits) == bits; }

}  // namespace

void EventCallback(const hci::HciPacket& packet) {
  DebugAnchor anchor(AnchorType::kCallbackHciEvent, PacketText("cb->hciEventReceived", packet.size()));
  BtActivitiesLogger::Get().LogActivities(BtActivitiesLogger::kEvent, packet);
  const bool has_handle =
      packet.size() > kCompletedHandleHighOffset && packet[0] == hci::kNumberOfCompletedPacketsEvent;
  if (VndSnoopLogger::Get().is_logging() && has_handle) {
    const uint8_t b = packet[kCompletedHandleHighOffset];
    if (HasBits(b, kCompletedMark)) {
      CaptureUnmarked(packet, kCompletedHandleHighOffset, HasBits(b, kMark) ? kMark : kCompletedMark,
                      Direction::kFromController, PacketType::kEvent);
      return;
    }
  }
  Capture(packet, Direction::kFromController, PacketType::kEvent);
  DeliverEvent(packet, anchor);
}

void AclCallback(const hci::HciPacket& packet) {
  DebugAnchor anchor(AnchorType::kCallbackAclData, PacketText("cb->aclDataReceived", packet.size()));
  BtActivitiesLogger::Get().LogActivities(BtActivitiesLogger::kAclFromController, packet);
  if (packet.size() < kHandleSize) {
    DeliverAcl(packet, anchor);
    return;
  }
  const uint16_t handle =
      static_cast<uint16_t>(packet[kHandleLowOffset] | (packet[kHandleHighOffset] & kHandleHighMask) << 8);
  const bool filtering = VndSnoopLogger::Get().is_logging();
  if (filtering && handle != kDiagnosticHandle && HasBits(packet[kHandleHighOffset], kMark)) {
    CaptureUnmarked(packet, kHandleHighOffset, kMark, Direction::kToController, PacketType::kAclData);
    return;
  }
  if (filtering && (handle == kDiagnosticHandle || handle == kSnoopOnlyHandle)) {
    Capture(packet, Direction::kFromController, PacketType::kAclData);
  }
  if (handle == kDiagnosticHandle || (filtering && handle == kSnoopOnlyHandle)) return;
  DeliverAcl(packet, anchor);
}

void ScoCallback(const hci::HciPacket& packet) {
  DebugAnchor anchor(AnchorType::kCallbackScoData, PacketText("cb->scoDataReceived", packet.size()));
  Capture(packet, Direction::kFromController, PacketType::kScoData);
  DeliverSco(packet, anchor);
}

void IsoCallback(const hci::HciPacket& packet) {
  DebugAnchor anchor(AnchorType::kCallbackIsoData, PacketText("cb->isoDataReceived", packet.size()));
  if (VndSnoopLogger::Get().is_logging() && packet.size() >= kHandleSize) {
    const uint8_t b = packet[kHandleHighOffset];
    if (HasBits(b, kIsoSentMark)) {
      CaptureUnmarked(packet, kHandleHighOffset, kIsoSentMark, Direction::kToController, PacketType::kIsoData);
      return;
    }
    if (HasBits(b, kIsoReceivedMark)) {
      CaptureUnmarked(packet, kHandleHighOffset, kIsoReceivedMark, Direction::kFromController, PacketType::kIsoData);
      return;
    }
  }
  Capture(packet, Direction::kFromController, PacketType::kIsoData);
  DeliverIso(packet, anchor);
}

void ThreadCallback(const hci::HciPacket& packet, hci::ThreadDispatcher* dispatcher) {
  const DebugAnchor anchor(AnchorType::kCallbackThreadData, PacketText("SendThreadFrame", packet.size()));
  if (dispatcher == nullptr) {
    static os::LogThrottle throttle;
    throttle.Log(LOG_TAG, ::android::base::WARNING,
                 "ThreadCallback: [bthal.thread_dispatcher] Unable to callback Thread data to Thread HAL.");
    return;
  }
  dispatcher->SendThreadPacket(packet);
}

void NotifyCallback(const hci::HciPacket& packet) {
  static Delivery delivery{&IBluetoothHciCallbacks::hciEventReceived,
                           {"Unable to callback bqr root inflamed event to Stack", {}},
                           {"notify_cb: g_cb == nullptr", {}}};
  DeliverNow(packet, delivery);
}

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
