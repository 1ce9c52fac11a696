// The powered-off finder: keys that the controller goes on using by itself once the device is off.
#pragma once

#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothFinder.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "aidl/extension.h"

namespace vendor::tovani::bluetooth_ext::finder::aidl::implementation {

// Takes keys through Binder at any time; hands them to the controller, and starts its finding mode, when the service is
// told to end. The process ends itself on the controller's answer to the start.
//
// It is told of Bluetooth's going on only. Going off needs no counterpart: the transport takes its watchers with it,
// and a dead handle refuses.
class BluetoothFinder : public ::android::hardware::bluetooth::WatchingExtension<
                            BluetoothFinder, ::aidl::vendor::tovani::bluetooth_ext::BnBluetoothFinder> {
 public:
  static constexpr char kLogTag[] = "bthal.aidl.pof";

  BluetoothFinder();
  ~BluetoothFinder() override { StopWatching(); }

  ::ndk::ScopedAStatus sendPrecomputedKeys(const std::vector<uint8_t>& keys) override;
  ::ndk::ScopedAStatus setPoweredOffMode(bool enable) override;

  bool IsPoweredOffModeEnabled() const { return powered_off_mode_enabled_; }

  // Sends the keys and the start command without waiting for their answers. False (logged) without a transport or keys,
  // on every call after the first, and when the start could not be sent.
  bool enterPoweredOffMode();

  bool OnEventReceive(const HciPacket& event) override;

 private:
  bool sendKeys();
  bool startPoweredOffMode();
  std::vector<uint8_t> KeyParameters(size_t offset) const;
  bool SendCommand(const char* operation, HciFlowControl& flow_control, const std::vector<uint8_t>& parameters);
  void OnRefused(const HciPacket& event) override;
  bool IsStartAnswered() const { return start_sent_ && pending_ == 0; }
  void FinishPoweredOffMode(const HciPacket& event, bool success);

  std::atomic<bool> powered_off_mode_enabled_{false};
  std::atomic<bool> entered_{false};
  std::atomic<bool> start_sent_{false};
  mutable std::mutex keys_mutex_;
  std::vector<uint8_t> key_store_;
};

}  // namespace vendor::tovani::bluetooth_ext::finder::aidl::implementation
