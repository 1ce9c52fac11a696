#define LOG_TAG "bthal.aidl.qnlbtlinux"

// The way down: from the client to the controller.
#include <android-base/logging.h>

#include <vector>

#include "aidl/bluetooth_hci/bluetooth_hci.h"
#include "aidl/bluetooth_hci/packet_text.h"
#include "bluetooth_Activity.h"
#include "debug_central/debug_central.h"
#include "os/log_throttle.h"
#include "vnd_snoop_logger.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

constexpr size_t kMinCommandSize = 2;  // the opcode
constexpr size_t kTypeByteSize = 1;    // the record counts a packet as it goes over the wire

// A packet that lends the bytes of a Binder call. Nobody writes to it.
hci::HciPacket Lend(const std::vector<uint8_t>& bytes) {
  hci::HciPacket packet;
  packet.setToExternal(const_cast<uint8_t*>(bytes.data()), bytes.size());
  return packet;
}

}  // namespace

::ndk::ScopedAStatus BluetoothHci::sendHciCommand(const std::vector<uint8_t>& packet) {
  if (packet.size() < kMinCommandSize) {
    static os::LogThrottle throttle;
    throttle.Log(LOG_TAG, ::android::base::ERROR, "sendHciCommand: Wrong Command Size");
    return ::ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT, "Wrong Command Size!");
  }
  const hci::HciPacket command = Lend(packet);
  const DebugAnchor anchor(AnchorType::kSendHciCommand,
                           PacketText(__func__, hci::ReadOpcode(command, 0), command.size() + kTypeByteSize));
  BtActivitiesLogger::Get().LogActivities(BtActivitiesLogger::kCommand, command);
  VndSnoopLogger::Get().Capture(command, VndSnoopLogger::kToController, VndSnoopLogger::kCommand);
  sendDataToController(command_type_, command);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus BluetoothHci::sendAclData(const std::vector<uint8_t>& packet) {
  const hci::HciPacket data = Lend(packet);
  const DebugAnchor anchor(AnchorType::kSendAclData, PacketText(__func__, data.size() + kTypeByteSize));
  BtActivitiesLogger::Get().LogActivities(BtActivitiesLogger::kAclToController, data);
  sendDataToController(acl_type_, data);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus BluetoothHci::sendScoData(const std::vector<uint8_t>& packet) {
  const hci::HciPacket data = Lend(packet);
  const DebugAnchor anchor(AnchorType::kSendScoData, PacketText(__func__, data.size() + kTypeByteSize));
  VndSnoopLogger::Get().Capture(data, VndSnoopLogger::kToController, VndSnoopLogger::kScoData);
  sendDataToController(sco_type_, data);
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus BluetoothHci::sendIsoData(const std::vector<uint8_t>& packet) {
  const hci::HciPacket data = Lend(packet);
  const DebugAnchor anchor(AnchorType::kSendIsoData, PacketText(__func__, data.size() + kTypeByteSize));
  VndSnoopLogger::Get().Capture(data, VndSnoopLogger::kToController, VndSnoopLogger::kIsoData);
  sendDataToController(iso_type_, data);
  return ::ndk::ScopedAStatus::ok();
}

void BluetoothHci::sendDataToController(uint8_t type, const hci::HciPacket& packet) {
  const auto flow_control = serving_ ? hci_handle() : nullptr;
  if (flow_control == nullptr) {
    ++dropped_packets_;
    return;
  }
  // The request for the controller's debug information must also pass when the controller answers nothing any more.
  if (type == command_type_ && DebugCentral::Get().IsControllerDebugDumpOpcode(packet)) {
    flow_control->SendNoAck(type, packet.data(), packet.size());
  } else {
    flow_control->Send(type, packet.data(), packet.size());
  }
}

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
