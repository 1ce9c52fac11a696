// The proxy of an IBluetoothHci in another process.
#pragma once

#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>

#include <memory>
#include <vector>

namespace aidl::android::hardware::bluetooth {

class BpBluetoothHci : public ::bthal::host::Proxy<IBluetoothHci> {
 public:
  using Proxy::Proxy;

  ::ndk::ScopedAStatus close() override { return Call<&IBluetoothHci::close>(); }
  ::ndk::ScopedAStatus initialize(const std::shared_ptr<IBluetoothHciCallbacks>& in_callbacks) override {
    return Call<&IBluetoothHci::initialize>(in_callbacks);
  }
  ::ndk::ScopedAStatus sendAclData(const std::vector<uint8_t>& in_data) override {
    return Call<&IBluetoothHci::sendAclData>(in_data);
  }
  ::ndk::ScopedAStatus sendHciCommand(const std::vector<uint8_t>& in_command) override {
    return Call<&IBluetoothHci::sendHciCommand>(in_command);
  }
  ::ndk::ScopedAStatus sendIsoData(const std::vector<uint8_t>& in_data) override {
    return Call<&IBluetoothHci::sendIsoData>(in_data);
  }
  ::ndk::ScopedAStatus sendScoData(const std::vector<uint8_t>& in_data) override {
    return Call<&IBluetoothHci::sendScoData>(in_data);
  }
};

}  // namespace aidl::android::hardware::bluetooth
