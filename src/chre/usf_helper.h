// The sensor hub's path to the controller: the UART belongs to the hub, and packets, power, speed and low-power mode
// are asked of it. See hub_recovery.h for what becomes of a lost connection.
//
// A request that is refused, or not answered in time, is reported with the kind of its status, and so ends the process;
// where a test has replaced the ends, it has failed.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "chre/hub_connection.h"
#include "chre/hub_delivery.h"
#include "chre/hub_dump.h"
#include "chre/hub_requests.h"
#include "h4/hw_control/uart_baud_rate.h"
#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci {

// Process-wide, never destroyed. Preparing, power, port, speed and low-power mode come from bring-up and teardown; the
// others from any thread.
class UsfHelper {
 public:
  static UsfHelper& Get();

  // Waits until the hub is connected, at most MaxUsfRecoveryTimeInSeconds; reports a hub that is not.
  bool PrepareUsfTransport();
  // Tries once, in the background; nothing is missing where it does not succeed.
  void PrepareUsfTransportAsync();
  // The controller is to be reached without the hub until the next boot.
  bool IsUsfTransportDead() const { return hub::HubRecovery::IsDead(); }
  // The port behind the hub is open, though its connection may be lost for a while.
  bool IsReady() const { return port_open_; }
  bool IsLpmEnabled() const { return lpm_enabled_; }

  // `control_pin`: the hub drives the controller's power pin.
  bool PowerControl(bool on, bool control_pin);
  bool UserialOpen(bool open);
  bool LpmEnable(bool enable);
  bool BaudrateChange(UartBaudRate rate);

  // Return the bytes that the hub has taken, type bytes included, or 0. With `ack_required` the hub answers when the
  // packet has gone out; that is not waited for here, but watched. A batch is waited for in any case, which keeps the
  // hub from having to store a whole download.
  size_t SendHciToUsf(uint8_t type, const uint8_t* data, size_t length, bool ack_required);
  size_t SendHciBatchToUsf(const uint8_t* data, size_t length, bool ack_required);

  void InitializeCallback(const Consumers& consumers);
  // From here on the consumers are called, `receiver` being kept alive meanwhile.
  bool StartReceiving(const std::weak_ptr<const void>& receiver);
  // Lets senders go and delivers nothing more; waits for `patience` for a consumer that is being called.
  void TakeLineAway(std::chrono::milliseconds patience);
  void DeinitializeCallback();
  // Lets go of the hub.
  void Deinitialize();

  // Has the hub tell what it remembers, and files it. False unless all of it has come.
  bool GetChreDebugDump();

  // What was received and given to nobody.
  uint64_t DroppedMessages() const;

 private:
  using Encode = std::function<hub::Encoded(uint32_t id)>;

  UsfHelper();

  // Sends a request and waits for its answer.
  std::optional<hub::Refusal> Ask(const char* request, std::chrono::milliseconds patience, const Encode& encode);
  // The same, a refusal being reported at once; true when the hub has done it. While the connection is lost it `waits`
  // for its return, or asks nothing.
  bool Demand(const char* request, bool waits, const Encode& encode);

  // On the connection's thread.
  void OnMessage(const hub::FromHub& message);
  void OnBack(bool renewed);
  void OnDead();
  void OnTick();
  void EndLine(BqrErrorCode kind, const char* text);

  hub::HubRequests requests_;
  hub::HubDelivery delivery_;
  hub::HubDump dump_;
  std::atomic<bool> port_open_{false};
  std::atomic<bool> lpm_enabled_{false};
  std::atomic<bool> line_taken_{false};  // nobody sends packets any more
  std::atomic<uint64_t> stray_fragments_{0};
  hub::HubConnection connection_;
};

}  // namespace android::hardware::bluetooth::hci
