// The proxy of an IBluetoothHciCallbacks in another process.
#pragma once

#include <aidl/android/hardware/bluetooth/IBluetoothHciCallbacks.h>

#include <memory>
#include <vector>

namespace aidl::android::hardware::bluetooth {

class BpBluetoothHciCallbacks : public ::bthal::host::Proxy<IBluetoothHciCallbacks> {
 public:
  using Proxy::Proxy;

  ::ndk::ScopedAStatus aclDataReceived(const std::vector<uint8_t>& in_data) override {
    return Call<&IBluetoothHciCallbacks::aclDataReceived>(in_data);
  }
  ::ndk::ScopedAStatus hciEventReceived(const std::vector<uint8_t>& in_event) override {
    return Call<&IBluetoothHciCallbacks::hciEventReceived>(in_event);
  }
  ::ndk::ScopedAStatus initializationComplete(Status in_status) override {
    return Call<&IBluetoothHciCallbacks::initializationComplete>(in_status);
  }
  ::ndk::ScopedAStatus isoDataReceived(const std::vector<uint8_t>& in_data) override {
    return Call<&IBluetoothHciCallbacks::isoDataReceived>(in_data);
  }
  ::ndk::ScopedAStatus scoDataReceived(const std::vector<uint8_t>& in_data) override {
    return Call<&IBluetoothHciCallbacks::scoDataReceived>(in_data);
  }
};

}  // namespace aidl::android::hardware::bluetooth
