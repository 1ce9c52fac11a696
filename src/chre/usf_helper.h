// The sensor-hub offload transport. This build carries no sensor-hub client: every operation that would need one
// refuses with a log, and the transport is not counted as dead, so that no lasting fallback is written by accident.
#pragma once

#include <cstddef>
#include <cstdint>

#include "h4/hw_control/uart_baud_rate.h"
#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci {

class UsfHelper {
 public:
  static UsfHelper& Get();

  bool PrepareUsfTransport();
  void PrepareUsfTransportAsync();
  bool IsUsfTransportDead() const;
  bool IsReady() const;
  bool IsLpmEnabled() const;
  bool PowerControl(bool on, bool control_pin);
  bool UserialOpen(bool open);
  bool LpmEnable(bool enable);
  bool BaudrateChange(UartBaudRate rate);
  size_t SendHciToUsf(uint8_t type, const uint8_t* data, size_t length, bool ack_required);
  size_t SendHciBatchToUsf(const uint8_t* data, size_t length, bool ack_required);
  bool InitializeCallback(const Consumers& consumers);
  void DeinitializeCallback();
  void Deinitialize();
  bool GetChreDebugDump();
};

}  // namespace android::hardware::bluetooth::hci
